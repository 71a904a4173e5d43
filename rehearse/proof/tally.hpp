#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "rehearse/proof/sweep.hpp"

namespace rehearse {

/// What came of a sweep.
struct Tally {
  std::string name;
  std::size_t points = 0;
  std::size_t old = 0;      ///< the previous application stood at the target's path
  std::size_t offered = 0;  ///< the new one did
  std::size_t lost = 0;     ///< no complete one did
  std::size_t failed = 0;   ///< could not be tried
  std::size_t violations = 0;
  bool isControl = false;

  /// A control must be seen to lose the application, and nothing else may break any promise.
  bool isAsItShould() const {
    return points != 0 && failed == 0 && (isControl ? lost != 0 && lost == violations : violations == 0);
  }
};

/// Runs a sweep, and shows on standard output how far it is and the first violations.
Tally run(const PlannedSweep& sweep, const std::filesystem::path& directory, unsigned workers);

/// Prints all that came of it.
void printTable(const std::vector<Tally>& tallies);

}  // namespace rehearse
