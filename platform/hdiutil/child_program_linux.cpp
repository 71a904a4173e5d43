#include <sys/mman.h>

#include <cerrno>

#include "platform/foundation/error.hpp"
#include "platform/hdiutil/child_program.hpp"

namespace platform::hdiutil {

FileDescriptor memoryFile() {
  FileDescriptor file(::memfd_create("output", MFD_CLOEXEC));
  if (!file.isOpen())
    throw SystemError("A file for a program's output could not be created", errno);
  return file;
}

ChildProgram::ChildProgram(const std::string& path, const std::vector<std::string>& arguments,
                           const std::array<int, 3>& standardStreams)
    : process_({.executable = URL::fileURLWithPath(path),
                .arguments = arguments,
                .standardStreams = standardStreams,
                .environment = std::vector<std::string>{"LC_ALL=C.UTF-8", "TZ=UTC0"},
                .diesWithParent = true}) {}

bool ChildProgram::succeeds() {
  process_.wait();
  return process_.status() == 0;
}

}  // namespace platform::hdiutil
