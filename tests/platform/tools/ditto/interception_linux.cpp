#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

#include "tests/platform/tools/ditto/interception.hpp"
#include "tests/support/files.hpp"

namespace test {
namespace {

constexpr int kSystemCallStop = SIGTRAP | 0x80;

std::string textAt(pid_t process, std::uint64_t address) {
  std::string text;
  while (true) {
    const long word = ::ptrace(PTRACE_PEEKDATA, process, address + text.size(), nullptr);
    for (unsigned shift = 0; shift < 64; shift += 8) {
      const auto character = static_cast<char>(static_cast<unsigned long>(word) >> shift & 0xFFU);
      if (character == '\0' || text.size() > 4096)
        return text;
      text += character;
    }
  }
}

bool isEntering(pid_t process, const Interception& interception) {
  __ptrace_syscall_info call{};
  ::ptrace(PTRACE_GET_SYSCALL_INFO, process, sizeof call, &call);
  return call.op == PTRACE_SYSCALL_INFO_ENTRY &&
         call.entry.nr == static_cast<std::uint64_t>(interception.number) &&
         textAt(process, call.entry.args[1]) == interception.path;
}

/// Lets the stopped program run until something happens to it again; how it ended, once it has.
int resume(pid_t process, int signal) {
  int status = 0;
  if (::ptrace(PTRACE_SYSCALL, process, nullptr, signal) != 0 || ::waitpid(process, &status, 0) != process)
    throw std::runtime_error("the program cannot be followed");
  return status;
}

}  // namespace

Outcome runIntercepted(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                       const Interception& interception) {
  const TemporaryDirectory capture;
  const std::string errorPath = (capture / "stderr").native();
  std::vector<std::string> texts{program.native()};
  texts.insert(texts.end(), arguments.begin(), arguments.end());
  std::vector<char*> argumentVector;
  for (std::string& text : texts)
    argumentVector.push_back(text.data());
  argumentVector.push_back(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    const int file = ::open(errorPath.c_str(), O_WRONLY | O_CREAT, 0600);
    if (file < 0 || ::dup2(file, STDERR_FILENO) < 0 || ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
      ::_exit(126);
    ::execv(program.c_str(), argumentVector.data());
    ::_exit(127);
  }
  int status = 0;
  if (::waitpid(child, &status, 0) != child || !WIFSTOPPED(status))
    throw std::runtime_error("the program has not started");
  ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  bool isTaken = false;
  status = resume(child, 0);
  while (WIFSTOPPED(status)) {
    const int signal = WSTOPSIG(status);
    if (signal == kSystemCallStop && !isTaken && isEntering(child, interception)) {
      isTaken = true;
      interception.step();
    }
    status = resume(child, signal == kSystemCallStop ? 0 : signal);
  }
  if (!isTaken)
    throw std::runtime_error("the program has not made the call");
  Outcome outcome;
  if (WIFSIGNALED(status))
    outcome.signal = WTERMSIG(status);
  else
    outcome.exitStatus = WEXITSTATUS(status);
  outcome.error = readFile(errorPath);
  return outcome;
}

}  // namespace test
