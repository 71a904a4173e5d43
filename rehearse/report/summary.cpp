#include "rehearse/report/summary.hpp"

#include <algorithm>
#include <tuple>

#include "platform/foundation/error.hpp"
#include "rehearse/report/wording.hpp"

namespace rehearse {
namespace {

/// Of a concern, before its severity.
enum class Urgency { loss, brokenPromise, finding, step };

using Ranked = std::pair<Urgency, Concern>;

Concern concernOf(const Sweep& sweep, const Counts& counts, const Point& first) {
  const std::string at =
      " of the sweep " + platform::quoted(sweep.name) + ", the first at " + platform::quoted(first.name);
  Concern concern{
      .severity = Severity::fault, .title = {}, .sentence = {}, .advice = {}, .versions = {}, .pairings = {}};
  if (counts.losses > 0) {
    concern.title = "the application is lost";
    concern.sentence = "No complete application is left at " + counted(counts.losses, "point") + at +
                       ". Users whose update ends there have no application.";
  } else {
    concern.title = "a promise is broken";
    concern.sentence =
        "A promise is broken at " + counted(counts.faults, "point") + at + ": " + first.violations.front();
  }
  concern.advice = "Do not publish with this updater before the reason is known.";
  return concern;
}

void append(std::vector<Ranked>& concerns, const Sweep& sweep) {
  if (!isFault(sweep))
    return;
  const Counts counts = countsOf(sweep);
  if (counts.faults == 0) {
    concerns.emplace_back(Urgency::brokenPromise,
                          Concern{.severity = Severity::fault,
                                  .title = "a control shows nothing",
                                  .sentence = judgementOf(sweep),
                                  .advice = "Do not rely on the other sweeps: they would not see a loss.",
                                  .versions = {},
                                  .pairings = {}});
    return;
  }
  const bool isLoss = counts.losses > 0;
  const auto first = std::ranges::find_if(sweep.points, [&](const Point& point) {
    return isFault(sweep, point) && (!isLoss || point.outcome == PointOutcome::lost);
  });
  concerns.emplace_back(isLoss ? Urgency::loss : Urgency::brokenPromise, concernOf(sweep, counts, *first));
}

std::string inWords(std::string key) {
  std::ranges::replace(key, '-', ' ');
  return key;
}

std::vector<Ranked> concernsOf(const Pairing& pairing) {
  std::vector<Ranked> result;
  for (const Sweep& sweep : pairing.sweeps)
    append(result, sweep);
  for (const Finding& finding : pairing.findings)
    result.emplace_back(Urgency::finding, Concern{.severity = finding.severity,
                                                  .title = inWords(finding.key),
                                                  .sentence = finding.sentence,
                                                  .advice = finding.advice,
                                                  .versions = {},
                                                  .pairings = {}});
  const bool hasFault =
      std::ranges::find(pairing.findings, Severity::fault, &Finding::severity) != pairing.findings.end();
  for (const Step& step : pairing.steps)
    // Findings say why the update failed.
    if (step.verdict == StepVerdict::failed && !(hasFault && step.name == kUpdateStep))
      result.emplace_back(Urgency::step, Concern{.severity = Severity::fault,
                                                 .title = step.name + " failed",
                                                 .sentence = step.message,
                                                 .advice = {},
                                                 .versions = {},
                                                 .pairings = {}});
  const auto isFaulty = [](const Ranked& ranked) { return ranked.second.severity == Severity::fault; };
  if (!pairing.wouldInstall && std::ranges::none_of(result, isFaulty))
    result.emplace_back(Urgency::step, Concern{.severity = Severity::fault,
                                               .title = "the update would be refused",
                                               .sentence = pairing.verdict,
                                               .advice = {},
                                               .versions = {},
                                               .pairings = {}});
  return result;
}

std::string numberOf(Severity severity, const std::vector<Concern>& concerns) {
  const auto number = std::ranges::count(concerns, severity, &Concern::severity);
  return number == 0 ? "no " + wordFor(severity)
                     : counted(static_cast<std::uint64_t>(number), wordFor(severity));
}

}  // namespace

std::vector<Concern> concerns(const Rehearsal& rehearsal) {
  std::vector<Ranked> ranked;
  for (std::size_t index = 0; index < rehearsal.pairings.size(); ++index)
    for (Ranked& more : concernsOf(rehearsal.pairings[index])) {
      const auto known = std::ranges::find_if(ranked, [&](const Ranked& each) {
        const auto members = [](const Concern& concern) {
          return std::tie(concern.severity, concern.title, concern.sentence, concern.advice);
        };
        return members(each.second) == members(more.second);
      });
      Concern& concern = known == ranked.end() ? ranked.emplace_back(std::move(more)).second : known->second;
      const std::string version = versionOf(rehearsal.pairings[index].installed);
      if (std::ranges::find(concern.versions, version) == concern.versions.end())
        concern.versions.push_back(version);
      concern.pairings.push_back(index);
    }
  std::ranges::stable_sort(ranked, {}, [](const Ranked& each) {
    return std::pair(-static_cast<int>(each.second.severity), each.first);
  });
  std::vector<Concern> result;
  result.reserve(ranked.size());
  for (Ranked& each : ranked)
    result.push_back(std::move(each.second));
  return result;
}

std::string verdictOf(const Rehearsal& rehearsal) {
  const std::vector<Pairing>& pairings = rehearsal.pairings;
  if (pairings.empty())
    return "NOT REHEARSED: there is no installed version";
  if (pairings.size() == 1)
    return pairings.front().verdict;
  std::vector<std::string> refused;
  for (const Pairing& pairing : pairings)
    if (!pairing.wouldInstall)
      refused.push_back(versionOf(pairing.installed));
  const std::string offered = versionOf(rehearsal.offered);
  const std::string all = textOf(std::uint64_t{pairings.size()});
  if (refused.empty())
    return "WOULD INSTALL: " + offered + " over all " + all + " installed versions";
  if (refused.size() == pairings.size())
    return "WOULD BE REFUSED: " + offered + " over each of " + all + " installed versions";
  return "WOULD BE REFUSED: " + offered + " over " + listed(refused) + ", " +
         textOf(std::uint64_t{refused.size()}) + " of " + all + " installed versions";
}

std::string judgementOf(const Rehearsal& rehearsal, const std::vector<Concern>& concerns) {
  const std::string numbers =
      numberOf(Severity::fault, concerns) + ", " + numberOf(Severity::warning, concerns) + ".";
  const bool hasWarning =
      std::ranges::find(concerns, Severity::warning, &Concern::severity) != concerns.end();
  if (exitStatus(rehearsal) != 0)
    return "Not ready to publish: " + numbers;
  // Warnings are to be considered first.
  return (hasWarning ? "Read before publishing: " : "Nothing speaks against publishing: ") + numbers;
}

Counts countsOf(const Sweep& sweep) {
  Counts counts;
  for (const Point& point : sweep.points) {
    ++counts.outcomes.at(static_cast<std::size_t>(point.outcome));
    const bool isAtFault = isFault(sweep, point);
    counts.faults += isAtFault ? 1U : 0U;
    counts.losses += isAtFault && point.outcome == PointOutcome::lost ? 1U : 0U;
  }
  return counts;
}

std::string summaryOf(const Sweep& sweep) {
  const Counts counts = countsOf(sweep);
  std::string text = counted(sweep.points.size(), "point");
  if (sweep.points.size() < sweep.total)
    text += " of " + textOf(sweep.total);
  const char* separator = ": ";
  for (std::size_t index = 0; index < counts.outcomes.size(); ++index)
    if (counts.outcomes.at(index) > 0) {
      text += separator + textOf(counts.outcomes.at(index)) + " " + wordFor(static_cast<PointOutcome>(index));
      separator = ", ";
    }
  return text;
}

std::string judgementOf(const Sweep& sweep) {
  const Counts counts = countsOf(sweep);
  if (counts.faults > 0) {
    const std::uint64_t broken = counts.faults - counts.losses;
    return counts.losses > 0
               ? "The application is lost at " + counted(counts.losses, "point") +
                     (broken > 0 ? ", and a promise is broken at " + textOf(broken) + " more." : ".")
               : "A promise is broken at " + counted(broken, "point") + ".";
  }
  if (sweep.isControl) {
    const std::string control = "The control " + platform::quoted(sweep.name);
    if (const std::uint64_t lost = counts.of(PointOutcome::lost); lost > 0)
      return control + " loses the application at " + counted(lost, "point") +
             ", which it must: the sweeps see a loss.";
    return control + " does not lose the application, which it must" +
           (isFault(sweep) ? "." : "; not all of its points were tried.");
  }
  if (counts.of(PointOutcome::notTried) == sweep.points.size())
    return "No point was tried.";
  return "Every promise was kept.";
}

}  // namespace rehearse
