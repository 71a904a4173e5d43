#include <sys/wait.h>

#include <csignal>

#include "platform/foundation/error.hpp"
#include "platform/foundation/system_call.hpp"
#include "platform/processes/installation_prefix.hpp"
#include "platform/processes/spawn.hpp"
#include "platform/processes/task.hpp"

namespace platform {
namespace {

URL locate(const URL& executable) {
  for (const std::string_view tool : {"hdiutil", "ditto", "open"}) {
    if (executable.path() == "/usr/bin/" + std::string(tool))
      return installationPrefix().appendingPathComponent("libexec/quorin").appendingPathComponent(tool);
  }
  return executable;
}

/// A program inherits whether SIGCHLD is ignored, and while it is, the system throws away how children ended.
void keepStatusOfChildren() {
  struct sigaction action {};
  if (::sigaction(SIGCHLD, nullptr, &action) != 0)
    throw SystemError("The state of a signal could not be read", errno);
  const bool discards = action.sa_handler == SIG_IGN || (action.sa_flags & SA_NOCLDWAIT) != 0;
  if (discards && ::signal(SIGCHLD, SIG_DFL) == SIG_ERR)
    throw SystemError("The state of a signal could not be changed", errno);
}

}  // namespace

NSTask::~NSTask() {
  if (state_ != State::running)
    return;
  ::kill(processIdentifier_, SIGKILL);
  // Nobody asks any more how it ended.
  static_cast<void>(uninterrupted([this] { return ::waitpid(processIdentifier_, nullptr, 0); }));
}

void NSTask::launchAndReturnError() {
  keepStatusOfChildren();
  processIdentifier_ = spawn(
      {.executable = locate(executable_.value()),
       .arguments = arguments_,
       .standardStreams = {standardStreams_[0]->descriptor().get(), standardStreams_[1]->descriptor().get(),
                           standardStreams_[2]->descriptor().get()}});
  state_ = State::running;
}

bool NSTask::isRunning() {
  return state_ == State::running && !collect(WNOHANG);
}

void NSTask::terminate() {
  // Until it is collected, the identifier is the child's own: the signal can reach nobody else.
  if (isRunning())
    ::kill(processIdentifier_, SIGTERM);
}

void NSTask::waitUntilExit() {
  while (state_ == State::running && !collect(0)) {
  }
}

bool NSTask::collect(int waitOptions) {
  int status = 0;
  const pid_t collected = uninterrupted([&] { return ::waitpid(processIdentifier_, &status, waitOptions); });
  if (collected < 0) {
    // Not our child, or no longer: its identifier may be another process's by now.
    state_ = State::ended;
    throw SystemError("The end of a program could not be awaited", errno);
  }
  if (collected == 0)
    return false;
  terminationStatus_ = WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
  state_ = State::ended;
  return true;
}

}  // namespace platform
