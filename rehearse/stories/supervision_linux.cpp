#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>

#include "platform/files/file_manager.hpp"
#include "platform/foundation/error.hpp"
#include "platform/foundation/uuid.hpp"
#include "rehearse/files/descendants.hpp"
#include "rehearse/files/trees.hpp"
#include "rehearse/stories/supervision.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

constexpr int kFailed = 2;

/// Such as SIGHUP for a program that is to survive its terminal.
bool isIgnored(int signal) {
  struct sigaction action {};
  return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

/// Blocks the signals that end a rehearsal, which arrive at `wait` instead.
class Signals {
 public:
  Signals() {
    ::sigemptyset(&set_);
    ::sigaddset(&set_, SIGCHLD);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
      if (!isIgnored(signal))
        ::sigaddset(&set_, signal);
    // Cannot fail with valid arguments.
    static_cast<void>(::pthread_sigmask(SIG_BLOCK, &set_, &before_));
  }
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;
  ~Signals() { restore(); }

  void restore() const { static_cast<void>(::pthread_sigmask(SIG_SETMASK, &before_, nullptr)); }

  int wait() const {
    return platform::uninterrupted([this] { return ::sigwaitinfo(&set_, nullptr); });
  }

 private:
  sigset_t set_{};
  sigset_t before_{};
};

fs::path makeScratch(const fs::path& parent) {
  fs::path scratch = parent / ("quorin-rehearsal-" + platform::UUID().uuidString());
  platform::NSFileManager::defaultManager().createDirectoryAtURL(
      platform::URL::fileURLWithPath(scratch.native()), platform::IntermediateDirectories::no,
      platform::DirectoryAccess::ownerOnly);
  // A sweep runs the updater as another user.
  fs::permissions(scratch, fs::perms(0711));
  return scratch;
}

[[noreturn]] void runChild(const std::function<int(const fs::path&)>& work, const fs::path& scratch,
                           const Signals& signals, pid_t supervisor) {
  // Without a supervisor nobody would clean up. It may have ended before the call took effect.
  if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || ::getppid() != supervisor)
    ::_exit(kFailed);
  signals.restore();
  int status = kFailed;
  try {
    status = work(scratch);
  } catch (const std::exception& failure) {
    static_cast<void>(std::fprintf(stderr, "quorin-rehearse: %s\n", sentenceOf(failure).c_str()));
  }
  static_cast<void>(std::fflush(nullptr));
  ::_exit(status);
}

/// The signal that is to end this process, or how the child ended.
struct End {
  int signal = 0;
  int status = kFailed;
};

int statusOf(int status) {
  if (WIFEXITED(status))
    return WEXITSTATUS(status);
  static_cast<void>(
      std::fprintf(stderr, "quorin-rehearse: Signal %d ended the rehearsal.\n", WTERMSIG(status)));
  return kFailed;
}

End awaitEnd(pid_t child, const Signals& signals) {
  while (true) {
    const int signal = signals.wait();
    if (signal != SIGCHLD)
      return {.signal = signal};
    int status = 0;
    // Orphans that were adopted are reaped too.
    for (pid_t ended = 0; (ended = ::waitpid(-1, &status, WNOHANG)) > 0;)
      if (ended == child)
        return {.signal = 0, .status = statusOf(status)};
  }
}

}  // namespace

int supervise(const fs::path& parent, const std::function<int(const fs::path& scratch)>& work) {
  const Signals signals;
  if (::prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0)
    throw platform::SystemError("The process cannot adopt orphans", errno);
  const fs::path scratch = makeScratch(parent);
  static_cast<void>(std::fflush(nullptr));
  const pid_t supervisor = ::getpid();
  const pid_t child = ::fork();
  if (child == 0)
    runChild(work, scratch, signals, supervisor);
  const int forkFailure = errno;
  const End end = child < 0 ? End() : awaitEnd(child, signals);
  // Its mounts end with the last of its processes.
  endAllChildren();
  removeItem(scratch);
  if (child < 0)
    throw platform::SystemError("No process could be started", forkFailure);
  if (end.signal != 0) {
    static_cast<void>(::signal(end.signal, SIG_DFL));
    static_cast<void>(::raise(end.signal));
    signals.restore();
  }
  return end.status;
}

}  // namespace rehearse
