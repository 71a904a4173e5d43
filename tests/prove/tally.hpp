#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/prove/sweep.hpp"

namespace prove {

/// What came of a sweep.
struct Tally {
  std::string name;
  std::size_t points = 0;
  std::size_t old = 0;      ///< the previous application stood at the target's path
  std::size_t offered = 0;  ///< the new one did
  std::size_t violations = 0;
  bool isControl = false;

  /// A control must be seen to fail, and everything else must not.
  bool isAsItShould() const { return (violations != 0) == isControl; }
};

/// Runs a sweep, and shows on standard output how far it is and the first violations.
Tally run(const Sweep& sweep, const std::filesystem::path& directory, unsigned workers);

/// Prints all that came of it.
void printTable(const std::vector<Tally>& tallies);

}  // namespace prove
