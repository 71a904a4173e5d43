#pragma once

#include <array>
#include <string>
#include <vector>

#include "platform/files/file_descriptor.hpp"
#include "platform/processes/spawn.hpp"

namespace platform::hdiutil {

/// A new file in memory, open for reading and writing: it takes a program's output even when the disk is
/// full.
FileDescriptor memoryFile();

/// A helper program, with an environment that sets UTF-8 names and universal time and nothing else. It is
/// killed with the thread that started it, and at the end of this object's life.
class ChildProgram {
 public:
  /// The caller keeps the streams. Throws `SystemError` when the program cannot be executed.
  ChildProgram(const std::string& path, const std::vector<std::string>& arguments,
               const std::array<int, 3>& standardStreams);

  /// Waits for the end. True when the program exited with status 0.
  bool succeeds();

 private:
  ChildProcess process_;
};

}  // namespace platform::hdiutil
