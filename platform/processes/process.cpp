#include "platform/processes/process.hpp"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <thread>

namespace platform {

static_assert(kSignalKill == SIGKILL && kNotPermitted == EPERM);

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
