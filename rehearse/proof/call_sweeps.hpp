#pragma once

#include <vector>

#include "rehearse/proof/recording.hpp"
#include "rehearse/proof/sweep.hpp"
#include "rehearse/proof/verdict.hpp"

namespace rehearse {

/// What the sweeps over the calls of one story are made from. All must exist as long as a sweep.
struct Rehearsed {
  const Material& material;
  const NextUpdates& nextUpdates;
  Story story;
  const std::vector<RecordedCall>& calls;
  Selection selection;
};

/// Whether a call is made by a judge in the place of `open`, which says nothing about the real one.
bool isJudges(const Rehearsed& rehearsed, const RecordedCall& call);

/// One call fails, with each of the errors that it can give. The calls by which the updater itself changes
/// files are in each sample.
PlannedSweep faultSweep(const Rehearsed& rehearsed);

/// The file system breaks: from one call on every change of a file fails, or every renaming; or one renaming
/// is made and reported as failed.
std::vector<PlannedSweep> breakdownSweeps(const Rehearsed& rehearsed);

/// The updater and its tools die at the same time, after each call that changes files: between two of them,
/// what a death leaves is the same. That is what was observed there, see `DiskObserver` and `run`. No sample
/// leaves out any of these points.
PlannedSweep killSweep(const Rehearsed& rehearsed);

/// The caller or the updater dies before and after each call at which other processes live, which go on.
/// Where there are none, its death is everyone's.
PlannedSweep killSweepOfOne(const Rehearsed& rehearsed);

/// All of them die after a call that changes files, and once more during the update that follows.
PlannedSweep secondKillSweep(const Rehearsed& rehearsed);

/// A control: the file system knows no exchange of names. The target's place is then empty for an instant,
/// and a kill in it must be seen.
PlannedSweep killSweepWithoutExchange(const Material& material, const Selection& selection);

}  // namespace rehearse
