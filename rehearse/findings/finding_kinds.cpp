#include "rehearse/findings/finding_kinds.hpp"

#include <algorithm>
#include <stdexcept>

namespace rehearse {
namespace {

std::size_t placeOf(std::string_view key) {
  const auto* kind = std::ranges::find(kFindingKinds, key, &FindingKind::key);
  if (kind == kFindingKinds.end())
    throw std::logic_error("there is no such kind of finding");
  return static_cast<std::size_t>(kind - kFindingKinds.begin());
}

}  // namespace

Finding finding(std::string_view key, std::string sentence) {
  const FindingKind& kind = kFindingKinds.at(placeOf(key));
  return {.severity = kind.severity,
          .key = std::string(key),
          .sentence = std::move(sentence),
          .advice = std::string(kind.advice)};
}

void sortWorstFirst(std::vector<Finding>& findings) {
  // The table has the worst first.
  std::ranges::stable_sort(findings, {}, [](const Finding& item) { return placeOf(item.key); });
}

}  // namespace rehearse
