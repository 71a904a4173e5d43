#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "rehearse/record/rehearsal.hpp"

namespace rehearse {

/// What came of a sweep.
struct Tally {
  std::string name;
  std::size_t points = 0;
  std::size_t old = 0;       ///< the previous application was at the target's path
  std::size_t offered = 0;   ///< the new one was
  std::size_t lost = 0;      ///< no complete one was
  std::size_t failed = 0;    ///< could not be tried
  std::size_t observed = 0;  ///< were not run, since what they leave was seen to be the same as in a run
  std::size_t violations = 0;
  bool isControl = false;
  bool isWhole = true;  ///< all points of the sweep are here

  /// A control must be seen to lose the application where it is whole, and nothing else may break any
  /// promise.
  bool keepsPromise() const {
    return failed == 0 && (isControl ? lost == violations && (lost != 0 || !isWhole) : violations == 0);
  }
};

Tally tallyOf(const Sweep& sweep);

/// All that came of it, a line for each sweep.
std::string table(const std::vector<Tally>& tallies);

}  // namespace rehearse
