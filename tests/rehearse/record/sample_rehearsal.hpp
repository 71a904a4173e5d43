#pragma once

#include "rehearse/record/rehearsal.hpp"

namespace test {

/// A rehearsal of one version which would install, with a sweep of few points and a warning.
rehearse::Rehearsal goodRehearsal();

/// A rehearsal of four versions with everything that can be found: one is refused, sweeps of thousands of
/// points have violations and one loses the application, a control, steps that failed and that were not
/// tried, and texts with markup and control characters.
rehearse::Rehearsal troubledRehearsal();

/// The points that a shard holds, in a record that is otherwise the same.
rehearse::Rehearsal shardOf(rehearse::Rehearsal rehearsal, rehearse::Shard shard);

}  // namespace test
