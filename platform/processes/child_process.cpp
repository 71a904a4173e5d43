#include <sys/wait.h>

#include <csignal>

#include "platform/foundation/error.hpp"
#include "platform/processes/spawn.hpp"

namespace platform {
namespace {

/// SIGCHLD's disposition is inherited; while it is ignored, the exit statuses of children are discarded.
void keepStatusOfChildren() {
  struct sigaction action {};
  if (::sigaction(SIGCHLD, nullptr, &action) != 0)
    throw SystemError("The disposition of SIGCHLD could not be read", errno);
  const bool discards = action.sa_handler == SIG_IGN || (action.sa_flags & SA_NOCLDWAIT) != 0;
  if (discards && ::signal(SIGCHLD, SIG_DFL) == SIG_ERR)
    throw SystemError("The disposition of SIGCHLD could not be changed", errno);
}

}  // namespace

ChildProcess::ChildProcess(const SpawnRequest& request)
    : identifier_((keepStatusOfChildren(), spawn(request))) {}

ChildProcess::~ChildProcess() {
  if (hasEnded_)
    return;
  ::kill(identifier_, SIGKILL);
  // The exit status is no longer needed.
  static_cast<void>(uninterrupted([this] { return ::waitpid(identifier_, nullptr, 0); }));
}

bool ChildProcess::isRunning() {
  return !hasEnded_ && !collect(WNOHANG);
}

void ChildProcess::wait() {
  while (!hasEnded_ && !collect(0)) {
  }
}

bool ChildProcess::collect(int waitOptions) {
  int status = 0;
  const pid_t collected = uninterrupted([&] { return ::waitpid(identifier_, &status, waitOptions); });
  if (collected < 0) {
    // By now the identifier may be another process's, which must not be signalled.
    hasEnded_ = true;
    throw SystemError("Waiting for a program failed", errno);
  }
  if (collected == 0)
    return false;
  status_ = WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
  hasEnded_ = true;
  return true;
}

}  // namespace platform
