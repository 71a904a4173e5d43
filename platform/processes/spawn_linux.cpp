#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <new>

#include "platform/files/file_descriptor.hpp"
#include "platform/foundation/error.hpp"
#include "platform/processes/program_start.hpp"

// posix_spawn() cannot request the parent's death signal, which only the child itself can set. Hence a fork,
// and a close-on-exec pipe whose end tells the parent that the child has executed the program or failed.
// Which of the two is in memory that both share, since writing to the pipe could fail too.

namespace platform {
namespace {

constexpr int kPipeDescriptor = 3;
constexpr int kExitStatusWithoutProgram = 127;

/// Why a child could not execute its program; 0 as long as nothing is known. A child that is forked shares
/// it.
class SharedReason {
 public:
  /// Throws where there is no memory.
  explicit SharedReason(const SpawnRequest& request)
      : page_(::mmap(nullptr, sizeof(Reason), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
    if (page_ == MAP_FAILED)
      throwNotStarted(request, errno);
    reason_ = new (page_) Reason(0);
  }
  SharedReason(const SharedReason&) = delete;
  SharedReason& operator=(const SharedReason&) = delete;
  // Cannot fail with what mmap returned.
  ~SharedReason() { static_cast<void>(::munmap(page_, sizeof(Reason))); }

  void set(int reason) noexcept { *reason_ = reason; }
  int get() const noexcept { return *reason_; }

 private:
  using Reason = std::atomic<int>;
  static_assert(Reason::is_always_lock_free);

  void* page_;
  Reason* reason_ = nullptr;
};

/// No handler of the caller runs in the child: signals are blocked until their dispositions are reset.
class AllSignalsBlocked {
 public:
  // With valid arguments neither call can fail.
  AllSignalsBlocked() noexcept {
    sigset_t all;
    ::sigfillset(&all);
    static_cast<void>(::pthread_sigmask(SIG_SETMASK, &all, &previous_));
  }
  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;
  ~AllSignalsBlocked() { static_cast<void>(::pthread_sigmask(SIG_SETMASK, &previous_, nullptr)); }

 private:
  sigset_t previous_{};
};

bool dieWithParent(pid_t parent) noexcept {
  if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0)
    return false;
  // The parent may have ended before the call took effect.
  if (::getppid() == parent)
    return true;
  errno = ESRCH;
  return false;
}

bool resetSignals() noexcept {
  // Fails for SIGKILL and SIGSTOP, which cannot be ignored, and for the C library's own signals.
  for (int signal = 1; signal < NSIG; ++signal)
    static_cast<void>(::signal(signal, SIG_DFL));
  sigset_t none;
  ::sigemptyset(&none);
  errno = ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
  return errno == 0;
}

/// Closes everything but the standard streams and the pipe, which changes its number.
bool setDescriptors(const std::array<int, 3>& streams, int pipe) noexcept {
  for (int number = 0; number < 3; ++number) {
    const int descriptor = streams[static_cast<std::size_t>(number)];
    // dup2() of a descriptor to itself would not clear its close-on-exec flag.
    if ((descriptor == number ? ::fcntl(number, F_SETFD, 0) : ::dup2(descriptor, number)) < 0)
      return false;
  }
  if (pipe != kPipeDescriptor && ::dup3(pipe, kPipeDescriptor, O_CLOEXEC) < 0)
    return false;
  ::closefrom(kPipeDescriptor + 1);
  return true;
}

/// Runs in the child. Other threads of the parent may have held locks at the fork, so only async-signal-safe
/// functions are called.
[[noreturn]] void become(const SpawnRequest& request, const ProgramImage& program, pid_t parent, int pipe,
                         SharedReason& reason) noexcept {
  if ((!request.diesWithParent || dieWithParent(parent)) &&
      (request.session == Session::inherited || ::setsid() >= 0) &&
      (request.workingDirectory.empty() || ::chdir(request.workingDirectory.c_str()) == 0) &&
      setDescriptors(request.standardStreams, pipe) && resetSignals())
    ::execve(program.path, program.arguments, program.environment);
  reason.set(errno);
  ::_exit(kExitStatusWithoutProgram);
}

pid_t forkChild(const SpawnRequest& request, const ProgramImage& program, int pipe, SharedReason& reason) {
  const pid_t parent = ::getpid();
  const AllSignalsBlocked blocked;
  // Not fork(): the child has no use for the libraries' fork handlers.
  const pid_t child = ::_Fork();
  if (child == 0)
    become(request, program, parent, pipe, reason);
  if (child < 0)
    throwNotStarted(request, errno);
  return child;
}

}  // namespace

std::int32_t startProgram(const SpawnRequest& request, const ProgramImage& program) {
  SharedReason shared(request);
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0)
    throwNotStarted(request, errno);
  const FileDescriptor reader(ends[0]);
  FileDescriptor writer(ends[1]);
  const pid_t child = forkChild(request, program, writer.get(), shared);
  writer = FileDescriptor();

  char none = 0;
  const bool ended = uninterrupted([&] { return ::read(reader.get(), &none, sizeof none); }) == 0;
  const int reason = ended ? shared.get() : errno;
  if (reason == 0)
    return child;
  if (!ended)
    ::kill(child, SIGKILL);
  // If SIGCHLD is ignored, the system reaps the child, and this fails with ECHILD once it has ended.
  static_cast<void>(uninterrupted([child] { return ::waitpid(child, nullptr, 0); }));
  throwNotStarted(request, reason);
}

}  // namespace platform
