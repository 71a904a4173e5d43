#include <algorithm>
#include <set>
#include <string_view>

#include "platform/foundation/error.hpp"
#include "rehearse/record/rehearsal_json.hpp"

namespace rehearse {
namespace {

[[noreturn]] void refuse(const std::string& reason) {
  throw platform::Error("The reports cannot be merged: " + reason + ".");
}

std::string textOf(const Shard& shard) {
  return "shard " + std::to_string(shard.number) + " of " + std::to_string(shard.count);
}

std::string joined(const std::vector<std::string>& texts) {
  std::string result;
  for (const std::string& text : texts)
    result.append(result.empty() ? "" : " ").append(text);
  return result.empty() ? "none" : result;
}

void requireSame(std::string_view what, const std::string& first, const std::string& other) {
  if (first != other)
    refuse("they differ in the " + std::string(what) + ", " + platform::quoted(first) + " and " +
           platform::quoted(other));
}

void requireSameApplication(std::string_view what, const ApplicationName& first,
                            const ApplicationName& other) {
  const auto text = [](const ApplicationName& name) {
    return name.identifier + " " + name.version + " (" + name.build + ")";
  };
  requireSame(what, text(first), text(other));
}

/// Nothing but the machine and the shard may differ.
void requireSameSubject(const Rehearsal& first, const Rehearsal& other) {
  requireSame("image's digest", first.subject.imageDigest, other.subject.imageDigest);
  requireSame("digest of the updater and its tools", first.subject.updaterDigest,
              other.subject.updaterDigest);
  requireSame("options", joined(first.subject.options), joined(other.subject.options));
  if (first.plan != other.plan)
    refuse("they differ in the plan");
  requireSameApplication("offered application", first.offered, other.offered);
  requireSame("number of installed versions", std::to_string(first.pairings.size()),
              std::to_string(other.pairings.size()));
  for (std::size_t index = 0; index < first.pairings.size(); ++index)
    requireSameApplication("installed application", first.pairings[index].installed,
                           other.pairings[index].installed);
}

/// The shards of all records, each of which must be there once.
std::vector<Shard> completeShards(const std::vector<Rehearsal>& records) {
  std::set<Shard> shards;
  for (const Rehearsal& record : records)
    for (const Shard& shard : record.shards) {
      if (shard.number == 0 || shard.number > shard.count)
        refuse("there is no " + textOf(shard));
      if (!shards.insert(shard).second)
        refuse(textOf(shard) + " comes twice");
      if (shard.count != shards.begin()->count)
        refuse(textOf(*shards.begin()) + " and " + textOf(shard) + " are of different divisions");
    }
  if (shards.empty())
    refuse("they do not say which shards they are");
  Shard expected{.number = 1, .count = shards.begin()->count};
  for (; expected.number <= expected.count; ++expected.number)
    if (!shards.contains(expected))
      refuse(textOf(expected) + " is missing");
  return {shards.begin(), shards.end()};
}

/// The points of all shards, each once. A point's place in its shard, relative to the shard's size, is about
/// its place in the sweep, whose points the shards have evenly.
std::vector<Point> interleaved(const std::vector<const std::vector<Point>*>& shards) {
  std::vector<std::pair<double, const Point*>> placed;
  for (const auto* points : shards)
    for (std::size_t index = 0; index < points->size(); ++index)
      placed.emplace_back((static_cast<double>(index) + 0.5) / static_cast<double>(points->size()),
                          &(*points)[index]);
  std::ranges::stable_sort(placed, {}, &std::pair<double, const Point*>::first);
  std::set<Point> known;
  std::vector<Point> result;
  for (const auto& [place, point] : placed)
    if (known.insert(*point).second)
      result.push_back(*point);
  return result;
}

template <typename Element>
void unite(std::vector<Element>& into, const std::vector<Element>& more) {
  for (const Element& element : more)
    if (std::ranges::find(into, element) == into.end())
      into.push_back(element);
}

template <typename Named>
Named* named(std::vector<Named>& elements, const std::string& name) {
  const auto found = std::ranges::find(elements, name, &Named::name);
  return found == elements.end() ? nullptr : &*found;
}

/// How much a verdict counts where shards differ.
int weight(StepVerdict verdict) {
  switch (verdict) {
    case StepVerdict::failed:
      return 2;
    case StepVerdict::passed:
      return 1;
    case StepVerdict::notTried:
      return 0;
  }
  return 0;
}

void uniteSteps(std::vector<Step>& into, const std::vector<Step>& more) {
  for (const Step& step : more)
    if (Step* known = named(into, step.name); known == nullptr)
      into.push_back(step);
    else if (weight(step.verdict) > weight(known->verdict))
      *known = step;
}

std::vector<Sweep> unitedSweeps(const std::vector<const Pairing*>& shards) {
  std::vector<Sweep> sweeps;
  for (const Pairing* shard : shards)
    for (const Sweep& sweep : shard->sweeps) {
      Sweep* known = named(sweeps, sweep.name);
      if (known == nullptr)
        sweeps.push_back(
            {.name = sweep.name, .total = sweep.total, .isControl = sweep.isControl, .points = {}});
      else if (known->isControl != sweep.isControl)
        refuse("they differ in whether the sweep " + platform::quoted(sweep.name) + " is a control");
      else
        known->total = std::max(known->total, sweep.total);
    }
  for (Sweep& sweep : sweeps) {
    std::vector<const std::vector<Point>*> parts;
    for (const Pairing* shard : shards)
      for (const Sweep& part : shard->sweeps)
        if (part.name == sweep.name)
          parts.push_back(&part.points);
    sweep.points = interleaved(parts);
    sweep.total = std::max<std::uint64_t>(sweep.total, sweep.points.size());
  }
  return sweeps;
}

Pairing united(const std::vector<const Pairing*>& shards) {
  Pairing result = *shards.front();
  for (const Pairing* shard : shards) {
    if (result.wouldInstall && !shard->wouldInstall) {
      result.wouldInstall = false;
      result.verdict = shard->verdict;
    }
    unite(result.findings, shard->findings);
    uniteSteps(result.steps, shard->steps);
  }
  std::ranges::stable_sort(result.findings, std::ranges::greater{}, &Finding::severity);
  result.sweeps = unitedSweeps(shards);
  return result;
}

}  // namespace

Rehearsal merged(const std::vector<Rehearsal>& records) {
  for (const Rehearsal& record : records)
    requireSameSubject(records.front(), record);
  std::vector<Shard> shards = completeShards(records);
  std::vector<const Rehearsal*> ordered;
  ordered.reserve(records.size());
  for (const Rehearsal& record : records)
    ordered.push_back(&record);
  std::ranges::sort(ordered, {}, [](const Rehearsal* record) { return record->shards; });

  Rehearsal result = *ordered.front();
  result.shards = std::move(shards);
  for (const Rehearsal* record : ordered) {
    result.date = std::min(result.date, record->date);
    result.duration = std::max(result.duration, record->duration);
    unite(result.judgedNotRun, record->judgedNotRun);
    unite(result.notTried, record->notTried);
  }
  for (std::size_t index = 0; index < result.pairings.size(); ++index) {
    std::vector<const Pairing*> pairings;
    pairings.reserve(ordered.size());
    for (const Rehearsal* record : ordered)
      pairings.push_back(&record->pairings[index]);
    result.pairings[index] = united(pairings);
  }
  return result;
}

}  // namespace rehearse
