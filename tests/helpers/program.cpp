#include "tests/helpers/program.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

#include "platform/processes/process.hpp"

namespace test {

int inChild(const std::function<int()>& body) {
  const pid_t child = ::fork();
  if (child < 0)
    throw std::runtime_error("fork failed");
  if (child == 0) {
    int result = 125;
    try {
      result = body();
    } catch (...) {
      // 125 says it.
    }
    ::_exit(result);
  }
  const int status = waitFor(child);
  if (!WIFEXITED(status))
    throw std::runtime_error("the child was ended by signal " + std::to_string(WTERMSIG(status)));
  return WEXITSTATUS(status);
}

std::string endedProcess() {
  const pid_t child = ::fork();
  if (child == 0)
    ::_exit(0);
  waitFor(child);
  return std::to_string(child);
}

std::filesystem::path buildPrefix() {
  return platform::installationPrefix().path();
}

}  // namespace test
