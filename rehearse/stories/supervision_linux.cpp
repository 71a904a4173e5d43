#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>

#include "platform/files/file_manager.hpp"
#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/error.hpp"
#include "platform/foundation/uuid.hpp"
#include "rehearse/files/descendants.hpp"
#include "rehearse/files/trees.hpp"
#include "rehearse/stories/supervision.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

constexpr int kFailed = 2;

/// Tells the inner supervisor that the outer one has died. It arrives also where signals are ignored.
constexpr int kOuterDied = SIGUSR1;

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
    ::sigaddset(&set_, kOuterDied);
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

[[noreturn]] void runChild(const std::function<int()>& body, int deathSignal, pid_t supervisor) {
  // Without a supervisor nobody would clean up. It may have ended before the call took effect.
  if (::prctl(PR_SET_PDEATHSIG, deathSignal) != 0 || ::getppid() != supervisor)
    ::_exit(kFailed);
  int status = kFailed;
  try {
    status = body();
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

/// Runs `body` in a child, which `deathSignal` reaches when this process dies, and then ends all that the
/// child has started.
End runBelow(const std::function<int()>& body, int deathSignal, const Signals& signals) {
  if (::prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0)
    throw platform::SystemError("The process cannot adopt orphans", errno);
  static_cast<void>(std::fflush(nullptr));
  const pid_t supervisor = ::getpid();
  const pid_t child = ::fork();
  if (child == 0)
    runChild(body, deathSignal, supervisor);
  if (child < 0)
    throw platform::SystemError("No process could be started", errno);
  const End end = awaitEnd(child, signals);
  endAllChildren();
  return end;
}

/// Ends this process by the signal, where one is to end it.
void endBy(int signal, const Signals& signals) {
  if (signal == 0)
    return;
  static_cast<void>(::signal(signal, SIG_DFL));
  static_cast<void>(::raise(signal));
  signals.restore();
}

}  // namespace

int supervise(const fs::path& parent, const std::function<int(const fs::path& scratch)>& work) {
  const Signals signals;
  const fs::path scratch = makeScratch(parent);
  const platform::ScopeExit removal([&] { removeItem(scratch); });
  // Of two supervisors each cleans up after the other, since none can after its own SIGKILL. The mounts in
  // the scratch directory end with the last process that sees them.
  const auto superviseInTurn = [&] {
    const End end = runBelow(
        [&] {
          signals.restore();
          return work(scratch);
        },
        SIGKILL, signals);
    if (end.signal == kOuterDied)
      removeItem(scratch);
    endBy(end.signal, signals);
    return end.status;
  };
  const End end = runBelow(superviseInTurn, kOuterDied, signals);
  removeItem(scratch);
  endBy(end.signal, signals);
  return end.status;
}

}  // namespace rehearse
