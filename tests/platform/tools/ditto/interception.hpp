#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/program.hpp"

namespace test {

/// A system call of which the second argument is a path.
struct Interception {
  long number;
  std::string path;
  std::function<void()> step;
};

/// Runs a program to its end. Just before its main thread enters that call for the first time, with that
/// path, the program stands still while the step is taken.
Outcome runIntercepted(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                       const Interception& interception);

}  // namespace test
