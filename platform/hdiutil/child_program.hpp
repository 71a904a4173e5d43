#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/files/file_descriptor.hpp"

namespace platform::hdiutil {

/// A new file in memory alone, open for reading and writing: what a program says even where the disk is full.
FileDescriptor memoryFile();

/// A program at work for this one. It never outlives it: the system kills it when this process ends in
/// whatever way, and it is killed and collected at the end of this object's life. It gets no descriptor but
/// its three standard streams, and an environment of its own: UTF-8 names and universal time.
class ChildProgram {
 public:
  /// Throws `SystemError` when the program cannot be executed. The streams stay the caller's.
  ChildProgram(const std::string& path, const std::vector<std::string>& arguments,
               const std::array<int, 3>& standardStreams);
  ChildProgram(const ChildProgram&) = delete;
  ChildProgram& operator=(const ChildProgram&) = delete;
  ~ChildProgram();

  /// Waits for the end. True when the program exited with status 0.
  bool succeeds();

 private:
  std::int32_t processIdentifier_ = 0;
};

}  // namespace platform::hdiutil
