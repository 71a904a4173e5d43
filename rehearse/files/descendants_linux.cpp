#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "rehearse/files/descendants.hpp"
#include "rehearse/files/served_disks.hpp"

namespace fs = std::filesystem;

namespace rehearse {

std::vector<pid_t> childrenOf(pid_t process) {
  std::vector<pid_t> children;
  std::error_code failure;
  fs::directory_iterator thread("/proc/" + std::to_string(process) + "/task", failure);
  for (; !failure && thread != fs::directory_iterator(); thread.increment(failure)) {
    std::ifstream list(thread->path() / "children");
    for (pid_t child = 0; list >> child;)
      children.push_back(child);
  }
  return children;
}

std::vector<pid_t> descendantsOf(pid_t process) {
  std::vector<pid_t> processes{process};
  for (std::size_t index = 0; index < processes.size(); ++index)
    for (const pid_t child : childrenOf(processes[index]))
      processes.push_back(child);
  return processes;
}

void endAllChildren() {
  while (true) {
    // First: a process that unmounts as it dies, and serves that mount itself, would wait for ever.
    for (const pid_t process : descendantsOf(::getpid()))
      abandonDisksOf(process);
    for (const pid_t child : childrenOf(::getpid()))
      ::kill(child, SIGKILL);
    while (::waitpid(-1, nullptr, WNOHANG) > 0)
      continue;
    if (::waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD)
      return;
    // Until the system has ended them; their own children come next.
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace rehearse
