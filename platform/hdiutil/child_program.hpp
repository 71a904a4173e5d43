#pragma once

#include <array>
#include <string>
#include <vector>

#include "platform/files/file_descriptor.hpp"
#include "platform/processes/spawn.hpp"

namespace platform::hdiutil {

/// A new file in memory, open for reading and writing, for the output of a program: it can be written even
/// when the disk is full. Throws `SystemError`.
FileDescriptor memoryFile();

/// A helper program whose environment sets only UTF-8 and UTC. It is killed when the thread that started it
/// ends (PR_SET_PDEATHSIG), and by the destructor.
class ChildProgram {
 public:
  /// Starts the program. The caller keeps ownership of the streams. Throws `SystemError` when the program
  /// cannot be executed.
  ChildProgram(const std::string& path, const std::vector<std::string>& arguments,
               const std::array<int, 3>& standardStreams);

  /// Waits until the program has ended. True when it exited with status 0.
  bool succeeds();

 private:
  ChildProcess process_;
};

}  // namespace platform::hdiutil
