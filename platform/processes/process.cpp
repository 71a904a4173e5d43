#include "platform/processes/process.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <thread>

namespace platform {

static_assert(kSignalKill == SIGKILL && kNotPermitted == EPERM);

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

void NSThread::sleepForTimeInterval(double seconds) {
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

int kill(std::int32_t processIdentifier, int signal) noexcept {
  return ::kill(processIdentifier, signal) == 0 ? 0 : errno;
}

void setsid() noexcept {
  // Fails for the leader of a process group, which keeps its session.
  static_cast<void>(::setsid());
}

}  // namespace platform
