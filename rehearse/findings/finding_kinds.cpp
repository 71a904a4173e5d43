#include "rehearse/findings/finding_kinds.hpp"

#include <algorithm>
#include <stdexcept>

#include "platform/foundation/error.hpp"

namespace rehearse {
namespace {

std::size_t placeOf(std::string_view key) {
  const auto* kind = std::ranges::find(kFindingKinds, key, &FindingKind::key);
  if (kind == kFindingKinds.end())
    throw std::logic_error("there is no such kind of finding");
  return static_cast<std::size_t>(kind - kFindingKinds.begin());
}

}  // namespace

Finding finding(std::string_view key, const std::string& sentence) {
  const FindingKind& kind = kFindingKinds.at(placeOf(key));
  // Values of the application are part of it, and must not break out of a line.
  const std::string escaped = platform::quoted(sentence);
  return {.severity = kind.severity,
          .key = std::string(key),
          .sentence = escaped.substr(1, escaped.size() - 2),
          .advice = std::string(kind.advice)};
}

void sortWorstFirst(std::vector<Finding>& findings) {
  // The table has the worst first.
  std::ranges::stable_sort(findings, {}, [](const Finding& item) { return placeOf(item.key); });
}

}  // namespace rehearse
