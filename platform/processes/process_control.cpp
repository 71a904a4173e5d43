#include "platform/processes/process_control.hpp"

#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace platform {

static_assert(kSignalKill == SIGKILL && kNotPermitted == EPERM);

int kill(std::int32_t processIdentifier, int signal) noexcept {
  return ::kill(processIdentifier, signal) == 0 ? 0 : errno;
}

void setsid() noexcept {
  // A process that leads a group already stays where it is.
  static_cast<void>(::setsid());
}

}  // namespace platform
