#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "platform/files/file_descriptor.hpp"
#include "platform/foundation/error.hpp"
#include "platform/processes/program_start.hpp"

// posix_spawn() cannot request the parent's death signal, which only the child itself can set. Hence a fork,
// and a close-on-exec pipe through which the child reports why it could not execute the program.

namespace platform {
namespace {

constexpr int kReportDescriptor = 3;
constexpr int kExitStatusWithoutProgram = 127;

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

/// Closes everything but the standard streams and `report`, which changes its number.
bool setDescriptors(const std::array<int, 3>& streams, int& report) noexcept {
  for (int number = 0; number < 3; ++number) {
    const int descriptor = streams[static_cast<std::size_t>(number)];
    // dup2() of a descriptor to itself would not clear its close-on-exec flag.
    if ((descriptor == number ? ::fcntl(number, F_SETFD, 0) : ::dup2(descriptor, number)) < 0)
      return false;
  }
  if (report != kReportDescriptor && ::dup3(report, kReportDescriptor, O_CLOEXEC) < 0)
    return false;
  report = kReportDescriptor;
  ::closefrom(kReportDescriptor + 1);
  return true;
}

/// Runs in the child. Other threads of the parent may have held locks at the fork, so only async-signal-safe
/// functions are called.
[[noreturn]] void become(const SpawnRequest& request, const ProgramImage& program, pid_t parent,
                         int report) noexcept {
  if ((!request.diesWithParent || dieWithParent(parent)) &&
      (request.session == Session::inherited || ::setsid() >= 0) &&
      (request.workingDirectory.empty() || ::chdir(request.workingDirectory.c_str()) == 0) &&
      setDescriptors(request.standardStreams, report) && resetSignals())
    ::execve(program.path, program.arguments, program.environment);
  const int reason = errno;
  // If the report cannot be written, the exit status still tells of the failure.
  [[maybe_unused]] const ssize_t written = ::write(report, &reason, sizeof reason);
  ::_exit(kExitStatusWithoutProgram);
}

pid_t forkChild(const SpawnRequest& request, const ProgramImage& program, int report) {
  const pid_t parent = ::getpid();
  const AllSignalsBlocked blocked;
  // Not fork(): the child has no use for the libraries' fork handlers.
  const pid_t child = ::_Fork();
  if (child == 0)
    become(request, program, parent, report);
  if (child < 0)
    throwNotStarted(request, errno);
  return child;
}

}  // namespace

std::int32_t startProgram(const SpawnRequest& request, const ProgramImage& program) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0)
    throwNotStarted(request, errno);
  const FileDescriptor reader(ends[0]);
  FileDescriptor writer(ends[1]);
  const pid_t child = forkChild(request, program, writer.get());
  writer = FileDescriptor();

  int reason = 0;
  const auto length = uninterrupted([&] { return ::read(reader.get(), &reason, sizeof reason); });
  if (length == 0)
    return child;
  if (length < 0) {
    reason = errno;
    ::kill(child, SIGKILL);
  }
  // If SIGCHLD is ignored, the system reaps the child, and this fails with ECHILD once it has ended.
  static_cast<void>(uninterrupted([child] { return ::waitpid(child, nullptr, 0); }));
  throwNotStarted(request, reason);
}

}  // namespace platform
