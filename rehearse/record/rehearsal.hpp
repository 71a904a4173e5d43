#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace rehearse {

using Milliseconds = std::chrono::milliseconds;

// Defaulted comparisons are mistaken for null pointers.
// NOLINTBEGIN(modernize-use-nullptr, readability-implicit-bool-conversion)

/// How much a finding matters: to know, to consider before publishing, or users would be stopped.
enum class Severity { note, warning, fault };

/// Something about a release that users would notice, or from which the update fails.
struct Finding {
  Severity severity = Severity::note;
  std::string key;       ///< stable, such as "build-does-not-rise"; docs/rehearsal.md has a section for each
  std::string sentence;  ///< what is found, and what users would see
  std::string advice;    ///< what to do about it; a sentence
  auto operator<=>(const Finding&) const = default;
};

/// An application as a person names it: "Quorin Ostreval 2.0 (200)". What its Info.plist does not say is
/// empty.
struct ApplicationName {
  std::string bundleName;  ///< of the directory, such as "Quorin Ostreval.app"
  std::string identifier;
  std::string version;  ///< CFBundleShortVersionString
  std::string build;    ///< CFBundleVersion
  std::string source;   ///< the bundle or image that it was read from, as it was given
  auto operator<=>(const ApplicationName&) const = default;
};

/// "2.0 (200)", with a question mark for what is not known.
std::string versionOf(const ApplicationName& name);

/// The name of the step that is the update itself, undisturbed.
inline constexpr const char* kUpdateStep = "update";

enum class StepVerdict {
  passed,    ///< it went as it has to, which for some steps means that the update was refused
  failed,    ///< a fault of the release, or of the updater
  notTried,  ///< the system does not allow it, or the release has nothing to try it on; the message says why
};

/// One thing that was rehearsed.
struct Step {
  std::string name;  ///< such as "update", "start refused", "refuse a flipped byte, old digest"
  StepVerdict verdict = StepVerdict::notTried;
  Milliseconds duration{};
  std::string
      refusedBy;        ///< the place that refused the update, such as "digest of the image"; empty for none
  std::string message;  ///< the updater's own sentence, or why the step failed or was not tried
  auto operator<=>(const Step&) const = default;
};

/// A phase of the undisturbed update, such as "attach" or "copy", from the updater's start on.
struct Phase {
  std::string name;
  Milliseconds begin{};
  Milliseconds end{};
  auto operator<=>(const Phase&) const = default;
};

/// What the update occupies at an instant, beyond what was there before it, in bytes.
struct DiskUse {
  Milliseconds time{};
  std::uint64_t besideTarget = 0;
  std::uint64_t temporary = 0;  ///< in "/tmp"
  auto operator<=>(const DiskUse&) const = default;
};

/// What a user finds after the undisturbed update.
struct Aftermath {
  int exitStatus = -1;                ///< of the updater; -1 when a signal ended it
  std::string statusFile;             ///< its text; empty when there is none
  std::string atTarget;               ///< such as "version 2.0 (200), complete"
  std::vector<std::string> leftOver;  ///< names beside the target and in "/tmp"
  std::uint64_t greatestBesideTarget = 0;
  std::uint64_t greatestTemporary = 0;
  auto operator<=>(const Aftermath&) const = default;
};

/// What is at the target's path after one point of a sweep.
enum class PointOutcome {
  previous,    ///< the previous application, complete
  offered,     ///< the new one, complete
  beside,      ///< a rejected or no application, with the previous one complete beside it
  lost,        ///< no complete application
  notReached,  ///< the run ended before the point
  notTried,    ///< the point could not be tried
};

/// How a point was proved.
enum class PointMethod {
  run,       ///< by a run that was disturbed there
  observed,  ///< the directory was the same as at a point that was run, so that a kill leaves the same
};

/// One point of a sweep. The name does not depend on the machine: process, call, how often.
struct Point {
  std::string name;  ///< such as "ditto: openat 17"
  PointOutcome outcome = PointOutcome::notTried;
  PointMethod method = PointMethod::run;
  std::vector<std::string> violations;  ///< sentences; empty when every promise was kept
  auto operator<=>(const Point&) const = default;
};

struct Sweep {
  std::string name;       ///< such as "update, a kill of one"
  std::uint64_t total{};  ///< all points of the sweep, of which `points` may be a sample or a shard
  /// True for a control: what keeps the promise is taken away, and the loss must be seen.
  bool isControl = false;
  std::vector<Point> points;
  auto operator<=>(const Sweep&) const = default;
};

/// One installed version, updated to the offered one. Where it would not install, findings say why.
struct Pairing {
  ApplicationName installed;
  bool wouldInstall = false;
  std::string verdict;  ///< "WOULD INSTALL: …" or "WOULD BE REFUSED: …"
  std::vector<Finding> findings;
  std::vector<Step> steps;
  std::vector<Phase> phases;
  std::vector<DiskUse> diskUse;
  Aftermath aftermath;
  std::vector<Sweep> sweeps;
  auto operator<=>(const Pairing&) const = default;
};

/// What reports must agree in to be merged: they are shards of one rehearsal.
struct Subject {
  std::string image;  ///< as it was given
  std::string imageDigest;
  std::string updaterDigest;         ///< SHA-256 of the updater and its tools
  std::vector<std::string> options;  ///< those that change what is tried, without `--shard`
  auto operator<=>(const Subject&) const = default;
};

/// Shards have the points of every sweep evenly, in the sweep's order, and each point is in one of them.
struct Shard {
  unsigned number = 1;  ///< from 1 on
  unsigned count = 1;
  auto operator<=>(const Shard&) const = default;
};

/// All that a rehearsal found.
struct Rehearsal {
  Subject subject;
  std::vector<Shard> shards;  ///< those in this record: one, or several after a merge
  std::string date;           ///< of its beginning, ISO 8601, UTC
  Milliseconds duration{};
  ApplicationName offered;
  std::string plan;  ///< the plan to publish, or the one that was given: JSON text
  std::vector<Pairing> pairings;
  std::vector<std::string> judgedNotRun;  ///< such as "the start of the application"
  std::vector<std::string> notTried;      ///< with the reason, a sentence each
  auto operator<=>(const Rehearsal&) const = default;
};

// NOLINTEND(modernize-use-nullptr, readability-implicit-bool-conversion)

/// Whether a point of the sweep is at fault: a promise was broken there, or no complete application was left,
/// which in a control is no fault.
bool isFault(const Sweep& sweep, const Point& point);

/// Whether a point of the sweep is at fault, or the sweep is a control, all of its points were tried, and
/// none lost the application.
bool isFault(const Sweep& sweep);

/// True for a sweep that the system does not allow: its one point is the reason.
bool isUntried(const Sweep& sweep);

/// Whether users would be stopped or harmed: the update would not install, a step failed, a finding is a
/// fault, or a sweep found one.
bool isFault(const Pairing& pairing);

/// 0 when every pairing would install and nothing worse than a warning was found, 1 when there is a fault or
/// no pairing. `record/` knows no other: a rehearsal that could not take place leaves no record.
int exitStatus(const Rehearsal& rehearsal);

}  // namespace rehearse
