#include "tools/sign_bundle/sealing_rules.hpp"

#include <regex.h>

#include "platform/foundation/error.hpp"

namespace sign_bundle {
namespace {

struct ReleaseExpression {
  void operator()(regex_t* expression) const noexcept {
    ::regfree(expression);
    delete expression;
  }
};
using Expression = std::unique_ptr<regex_t, ReleaseExpression>;

Expression compile(const std::string& pattern) {
  auto expression = std::make_unique<regex_t>();
  if (::regcomp(expression.get(), pattern.c_str(), REG_EXTENDED | REG_ICASE | REG_NOSUB) != 0)
    throw platform::Error("The rule " + platform::quoted(pattern) + " is not a regular expression.");
  return Expression(expression.release());
}

}  // namespace

struct RuleMatcher::Compiled {
  ResourceRule rule;
  Expression expression;
};

const std::vector<ResourceRule>& currentRules() {
  static const std::vector<ResourceRule> rules = {
      {.pattern = "^.*"},
      {.pattern = R"(.*\.dSYM($|/))", .weight = 11},
      {.pattern = R"(^(.*/)?\.DS_Store$)", .weight = 2000, .omit = true},
      {.pattern = "^(Frameworks|SharedFrameworks|PlugIns|Plug-ins|XPCServices|Helpers|MacOS|"
                  "Library/(Automator|Spotlight|LoginItems))/",
       .weight = 10,
       .nested = true},
      {.pattern = R"(^Info\.plist$)", .weight = 20, .omit = true},
      {.pattern = "^PkgInfo$", .weight = 20, .omit = true},
      {.pattern = "^Resources/", .weight = 20},
      {.pattern = R"(^Resources/.*\.lproj/)", .weight = 1000, .optional = true},
      {.pattern = R"(^Resources/.*\.lproj/locversion.plist$)", .weight = 1100, .omit = true},
      {.pattern = R"(^Resources/Base\.lproj/)", .weight = 1010},
      {.pattern = "^[^/]+$", .weight = 10, .nested = true},
      {.pattern = R"(^embedded\.provisionprofile$)", .weight = 20},
      {.pattern = R"(^version\.plist$)", .weight = 20},
  };
  return rules;
}

const std::vector<ResourceRule>& olderRules() {
  static const std::vector<ResourceRule> rules = {
      {.pattern = "^Resources/"},
      {.pattern = R"(^Resources/.*\.lproj/)", .weight = 1000, .optional = true},
      {.pattern = R"(^Resources/.*\.lproj/locversion.plist$)", .weight = 1100, .omit = true},
      {.pattern = R"(^Resources/Base\.lproj/)", .weight = 1010},
      {.pattern = "^version.plist$"},
  };
  return rules;
}

platform::PropertyList propertyListOf(const std::vector<ResourceRule>& rules) {
  using platform::PropertyList;
  PropertyList::Dictionary list;
  for (const ResourceRule& rule : rules) {
    PropertyList::Dictionary members;
    if (rule.weight != 1)
      members.emplace("weight", rule.weight);
    for (const auto& [key, holds] : {std::pair("omit", rule.omit), std::pair("optional", rule.optional),
                                     std::pair("nested", rule.nested)}) {
      if (holds)
        members.emplace(key, true);
    }
    list.emplace(rule.pattern, members.empty() ? PropertyList(true) : PropertyList(std::move(members)));
  }
  return PropertyList(std::move(list));
}

RuleMatcher::RuleMatcher(const std::vector<ResourceRule>& rules) {
  for (const ResourceRule& rule : rules)
    rules_.push_back({rule, compile(rule.pattern)});
}

RuleMatcher::~RuleMatcher() = default;

const ResourceRule* RuleMatcher::ruleFor(const std::string& path) const {
  const ResourceRule* decisive = nullptr;
  for (const Compiled& candidate : rules_) {
    if ((decisive == nullptr || candidate.rule.weight > decisive->weight) &&
        ::regexec(candidate.expression.get(), path.c_str(), 0, nullptr, 0) == 0)
      decisive = &candidate.rule;
  }
  return decisive;
}

}  // namespace sign_bundle
