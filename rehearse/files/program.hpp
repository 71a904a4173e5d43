#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/files/file_descriptor.hpp"

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

/// Takes what a program writes. Nothing of it has a name, so that nothing is left however this ends.
class Capture {
 public:
  /// Throws `platform::SystemError`.
  Capture();

  int outputDescriptor() const { return output_.get(); }
  int errorDescriptor() const { return error_.get(); }

  /// What was written so far. Throws `platform::SystemError`.
  std::string output() const;
  std::string error() const;

 private:
  platform::FileDescriptor output_;
  platform::FileDescriptor error_;
};

/// Starts a program with the null device as its standard input, whose output comes into `capture`. `prepare`
/// runs in the child just before the program takes its place, and may change what it inherits.
pid_t startProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                   const Capture& capture, const std::function<void()>& prepare);

/// Runs a program to its end and returns what came of it.
Outcome runProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                   const std::function<void()>& prepare = {});

}  // namespace rehearse
