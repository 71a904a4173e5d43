#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace rehearse {

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

}  // namespace rehearse
