#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace test {

/// How a program ended and what it wrote.
struct Outcome {
  int exitStatus = -1;  ///< -1 when a signal ended it
  int signal = 0;       ///< 0 when none did
  std::string output;
  std::string error;
};

/// Returns the status with which a child ended, as `waitpid` gives it.
int waitFor(pid_t child);

/// Starts a program with the null device as its standard input. What it writes comes into the files "stdout"
/// and "stderr" in `capture`. `prepare` runs in the child just before the program takes its place, and may
/// change what it inherits.
pid_t startProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                   const std::filesystem::path& capture, const std::function<void()>& prepare);

/// Runs a program to its end and returns what came of it.
Outcome runProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                   const std::function<void()>& prepare = {});

/// Runs `body` in a process of its own and returns its result, or throws what the process ended with instead.
/// For what would spoil the test program itself, such as giving up privileges.
int inChild(const std::function<int()>& body);

/// The identifier of a process that has ended.
std::string endedProcess();

/// The build tree's prefix, in which the test program lies too.
std::filesystem::path buildPrefix();

}  // namespace test
