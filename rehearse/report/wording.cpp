#include "rehearse/report/wording.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace rehearse {
namespace {

/// Below 10 with one digit behind the point, else without.
std::string rounded(std::uint64_t tenths) {
  if (tenths >= 100 || tenths % 10 == 0)
    return std::to_string((tenths + 5) / 10);
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10);
}

}  // namespace

std::string wordFor(Severity severity) {
  switch (severity) {
    case Severity::note:
      return "note";
    case Severity::warning:
      return "warning";
    case Severity::fault:
      return "fault";
  }
  return {};
}

std::string wordFor(PointOutcome outcome) {
  switch (outcome) {
    case PointOutcome::previous:
      return "previous";
    case PointOutcome::offered:
      return "new";
    case PointOutcome::beside:
      return "beside";
    case PointOutcome::lost:
      return "lost";
    case PointOutcome::notReached:
      return "not reached";
    case PointOutcome::notTried:
      return "not tried";
  }
  return {};
}

std::string wordFor(const Step& step) {
  switch (step.verdict) {
    case StepVerdict::passed:
      return step.refusedBy.empty() ? "passed" : "refused";
    case StepVerdict::failed:
      return "failed";
    case StepVerdict::notTried:
      return "not tried";
  }
  return {};
}

std::string textOf(Milliseconds time) {
  const auto milliseconds = static_cast<std::uint64_t>(std::max(time.count(), Milliseconds::rep{0}));
  if (milliseconds < 1000)
    return std::to_string(milliseconds) + " ms";
  if (milliseconds < 60'000)
    return rounded((milliseconds + 50) / 100) + " s";
  const std::uint64_t seconds = (milliseconds + 500) / 1000;
  return textOf(seconds / 60) + " min " + std::to_string(seconds % 60) + " s";
}

std::string textOf(std::uint64_t number) {
  std::string digits = std::to_string(number);
  for (std::size_t position = digits.size(); position > 3;) {
    position -= 3;
    digits.insert(position, ",");
  }
  return digits;
}

std::string bytesOf(std::uint64_t bytes) {
  if (bytes < 1000)
    return counted(bytes, "byte");
  constexpr std::array kUnits = {"kB", "MB", "GB", "TB", "PB", "EB"};
  double value = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  // 999.6 would be rounded to 1000.
  for (; value >= 999.5 && unit + 1 < kUnits.size(); ++unit)
    value /= 1000;
  return rounded(static_cast<std::uint64_t>(std::llround(value * 10))) + " " + kUnits.at(unit);
}

std::string counted(std::uint64_t number, std::string_view thing) {
  return textOf(number).append(" ").append(thing).append(number == 1 ? "" : "s");
}

std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

std::string listed(const std::vector<std::string>& texts) {
  std::string result;
  for (std::size_t index = 0; index < texts.size(); ++index) {
    const bool isLast = index + 1 == texts.size();
    result.append(index == 0 ? "" : isLast ? " and " : ", ").append(texts[index]);
  }
  return result;
}

}  // namespace rehearse
