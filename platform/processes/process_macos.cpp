#include <crt_externs.h>
#include <fcntl.h>

#include <csignal>

#include "platform/processes/process.hpp"

namespace platform {

std::vector<std::string> ProcessInfo::arguments() {
  char** const first = *::_NSGetArgv();
  return {first, first + *::_NSGetArgc()};
}

void ProcessInfo::secureStandardStreams() {
  for (int stream = 0; stream < 3; ++stream) {
    // open() returns the lowest free descriptor, the stream's own. Without /dev/null, a directory holds its
    // place, which can be neither read nor written; if that fails too, nothing is left to try.
    if (::fcntl(stream, F_GETFD) < 0 && ::open("/dev/null", O_RDWR | O_NOCTTY) < 0)
      static_cast<void>(::open("/", O_RDONLY | O_DIRECTORY));
  }
  // Cannot fail for these signals.
  static_cast<void>(::signal(SIGPIPE, SIG_IGN));
  static_cast<void>(::signal(SIGXFSZ, SIG_IGN));
}

// The system's own tools, which its protection keeps from being changed.
URL toolLocation(const URL& executable) {
  return executable;
}

}  // namespace platform
