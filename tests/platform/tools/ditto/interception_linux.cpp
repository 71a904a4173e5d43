#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

#include "tests/platform/tools/ditto/interception.hpp"

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
  if (::ptrace(PTRACE_SYSCALL, process, nullptr, signal) != 0)
    throw std::runtime_error("the program cannot be followed");
  return waitFor(process);
}

}  // namespace

Outcome runIntercepted(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                       const Interception& interception) {
  const auto beTraced = [] {
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
      ::_exit(126);
  };
  return runProgram(program, arguments, beTraced, [&](pid_t child) {
    int status = waitFor(child);
    ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    bool isTaken = false;
    for (int signal = 0; WIFSTOPPED(status); signal = signal == kSystemCallStop ? 0 : signal) {
      status = resume(child, signal);
      signal = WIFSTOPPED(status) ? WSTOPSIG(status) : 0;
      if (signal == kSystemCallStop && !isTaken && isEntering(child, interception)) {
        isTaken = true;
        interception.step();
      }
    }
    if (!isTaken)
      throw std::runtime_error("the program has not made the call");
    return status;
  });
}

}  // namespace test
