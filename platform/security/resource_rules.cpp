#include "platform/security/resource_rules.hpp"

#include <re2/re2.h>

#include <algorithm>
#include <cmath>

#include "platform/security/security_error.hpp"

namespace platform {
namespace {

constexpr std::size_t kMostRules = 256;
constexpr std::size_t kLongestPattern = 1024;
/// The usual rules have 200.
constexpr std::uint64_t kMostStates = 16384;
constexpr std::int64_t kPatternMemory = 1 << 20;

/// For linear time: the bundle, and thus the expressions, may be hostile.
RE2::Options options() {
  RE2::Options options(RE2::Latin1);
  options.set_posix_syntax(true);
  options.set_one_line(true);
  options.set_dot_nl(true);
  options.set_case_sensitive(false);
  options.set_never_capture(true);
  options.set_log_errors(false);
  options.set_max_mem(kPatternMemory);
  return options;
}

bool flag(const PropertyList& rule, std::string_view key) {
  const PropertyList* value = rule.valueForKey(key);
  if (value == nullptr)
    return false;
  if (!value->boolean())
    throw FormatError("a rule of the resource seal is not valid");
  return *value->boolean();
}

double weightOf(const PropertyList& rule) {
  const PropertyList* weight = rule.valueForKey("weight");
  if (weight == nullptr)
    return 1;
  if (weight->integer())
    return static_cast<double>(*weight->integer());
  if (!weight->real() || !std::isfinite(*weight->real()))
    throw FormatError("a rule of the resource seal does not have a valid weight");
  return *weight->real();
}

bool isSafeToOmit(std::string_view path) {
  static const RE2 kCode("^(Frameworks|SharedFrameworks|PlugIns|Plug-ins|XPCServices|Helpers|MacOS|Library)/",
                         options());
  return path.ends_with("/.DS_Store") ||
         !RE2::PartialMatch(re2::StringPiece(path.data(), path.size()), kCode);
}

}  // namespace

struct ResourceRules::Rule {
  std::unique_ptr<const RE2> pattern;
  double weight;
  bool omit;
};

ResourceRules::ResourceRules(const PropertyList& rules) {
  const PropertyList::Dictionary* members = rules.dictionary();
  if (members == nullptr || members->size() > kMostRules)
    throw FormatError("the rules of the resource seal are missing or too many");
  std::vector<Rule> read;
  for (const auto& [pattern, value] : *members) {
    if (pattern.size() > kLongestPattern)
      throw FormatError("a rule of the resource seal is too long");
    auto expression = std::make_unique<const RE2>(pattern, options());
    if (!expression->ok())
      throw FormatError("the rule \"" + pattern + "\" of the resource seal is not a regular expression");
    size_ += static_cast<std::uint64_t>(expression->ProgramSize());
    if (size_ > kMostStates)
      throw FormatError("the rules of the resource seal are too complex");
    const bool plain = value.dictionary() == nullptr;
    if (plain && value.boolean() != true)
      throw FormatError("a rule of the resource seal is not valid");
    const bool omit = !plain && flag(value, "omit");
    read.push_back({std::move(expression), plain ? 1 : weightOf(value), omit});
  }
  std::stable_sort(read.begin(), read.end(), [](const Rule& left, const Rule& right) {
    return left.weight != right.weight ? left.weight > right.weight : !left.omit && right.omit;
  });
  rules_ = std::make_shared<const std::vector<Rule>>(std::move(read));
}

bool ResourceRules::omits(std::string_view path) const {
  for (const Rule& rule : *rules_) {
    if (RE2::PartialMatch(re2::StringPiece(path.data(), path.size()), *rule.pattern))
      return rule.omit && isSafeToOmit(path);
  }
  return false;
}

}  // namespace platform
