#pragma once

#include <array>
#include <concepts>
#include <type_traits>
#include <utility>

#include "rehearse/record/rehearsal.hpp"

// The names that a record's members and words have in JSON, once for reading and for writing. `describe`
// calls `members(name, member)` for each member of a record.

namespace rehearse {

/// `Value` is `Record`, constant or not.
template <typename Value, typename Record>
concept Is = std::same_as<std::remove_cv_t<Value>, Record>;

/// A word for each value of an enumeration.
template <typename Enumeration, std::size_t kCount>
using Words = std::array<std::pair<Enumeration, const char*>, kCount>;

constexpr Words<Severity, 3> wordsOf(Severity) {
  return {{{Severity::note, "note"}, {Severity::warning, "warning"}, {Severity::fault, "fault"}}};
}

constexpr Words<StepVerdict, 3> wordsOf(StepVerdict) {
  return {{{StepVerdict::passed, "passed"},
           {StepVerdict::failed, "failed"},
           {StepVerdict::notTried, "notTried"}}};
}

constexpr Words<PointOutcome, 6> wordsOf(PointOutcome) {
  return {{{PointOutcome::previous, "previous"},
           {PointOutcome::offered, "offered"},
           {PointOutcome::beside, "beside"},
           {PointOutcome::lost, "lost"},
           {PointOutcome::notReached, "notReached"},
           {PointOutcome::notTried, "notTried"}}};
}

constexpr Words<PointMethod, 2> wordsOf(PointMethod) {
  return {{{PointMethod::run, "run"}, {PointMethod::observed, "observed"}}};
}

void describe(auto&& members, Is<Finding> auto& finding) {
  members("severity", finding.severity);
  members("key", finding.key);
  members("sentence", finding.sentence);
  members("advice", finding.advice);
}

void describe(auto&& members, Is<ApplicationName> auto& name) {
  members("bundleName", name.bundleName);
  members("identifier", name.identifier);
  members("version", name.version);
  members("build", name.build);
  members("source", name.source);
}

void describe(auto&& members, Is<Step> auto& step) {
  members("name", step.name);
  members("verdict", step.verdict);
  members("durationMs", step.duration);
  members("refusedBy", step.refusedBy);
  members("message", step.message);
}

void describe(auto&& members, Is<Phase> auto& phase) {
  members("name", phase.name);
  members("beginMs", phase.begin);
  members("endMs", phase.end);
}

void describe(auto&& members, Is<DiskUse> auto& use) {
  members("timeMs", use.time);
  members("besideTargetBytes", use.besideTarget);
  members("temporaryBytes", use.temporary);
}

void describe(auto&& members, Is<Aftermath> auto& aftermath) {
  members("exitStatus", aftermath.exitStatus);
  members("statusFile", aftermath.statusFile);
  members("atTarget", aftermath.atTarget);
  members("leftOver", aftermath.leftOver);
  members("greatestBesideTargetBytes", aftermath.greatestBesideTarget);
  members("greatestTemporaryBytes", aftermath.greatestTemporary);
}

void describe(auto&& members, Is<Point> auto& point) {
  members("name", point.name);
  members("outcome", point.outcome);
  members("method", point.method);
  members("violations", point.violations);
}

void describe(auto&& members, Is<Sweep> auto& sweep) {
  members("name", sweep.name);
  members("total", sweep.total);
  members("isControl", sweep.isControl);
  members("points", sweep.points);
}

void describe(auto&& members, Is<Pairing> auto& pairing) {
  members("installed", pairing.installed);
  members("wouldInstall", pairing.wouldInstall);
  members("verdict", pairing.verdict);
  members("findings", pairing.findings);
  members("steps", pairing.steps);
  members("phases", pairing.phases);
  members("diskUse", pairing.diskUse);
  members("aftermath", pairing.aftermath);
  members("sweeps", pairing.sweeps);
}

void describe(auto&& members, Is<Subject> auto& subject) {
  members("image", subject.image);
  members("imageDigest", subject.imageDigest);
  members("updaterDigest", subject.updaterDigest);
  members("options", subject.options);
}

void describe(auto&& members, Is<Shard> auto& shard) {
  members("number", shard.number);
  members("count", shard.count);
}

void describe(auto&& members, Is<Rehearsal> auto& rehearsal) {
  members("subject", rehearsal.subject);
  members("shards", rehearsal.shards);
  members("date", rehearsal.date);
  members("durationMs", rehearsal.duration);
  members("offered", rehearsal.offered);
  members("plan", rehearsal.plan);
  members("pairings", rehearsal.pairings);
  members("judgedNotRun", rehearsal.judgedNotRun);
  members("notTried", rehearsal.notTried);
}

}  // namespace rehearse
