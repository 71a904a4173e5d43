#include "rehearse/files/program.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

#include "rehearse/files/trees.hpp"

namespace rehearse {
namespace {

void redirect(int stream, const std::filesystem::path& path, int flags) {
  const int file = ::open(path.c_str(), flags, 0600);
  if (file < 0 || ::dup2(file, stream) < 0)
    ::_exit(126);
  if (file != stream)
    ::close(file);
}

}  // namespace

int waitFor(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR)
      throw std::runtime_error("waitpid failed");
  }
  return status;
}

pid_t startProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                   const std::filesystem::path& capture, const std::function<void()>& prepare) {
  std::vector<std::string> texts{program.native()};
  texts.insert(texts.end(), arguments.begin(), arguments.end());
  std::vector<char*> argumentVector;
  argumentVector.reserve(texts.size() + 1);
  for (std::string& text : texts)
    argumentVector.push_back(text.data());
  argumentVector.push_back(nullptr);

  const pid_t child = ::fork();
  if (child < 0)
    throw std::runtime_error("fork failed");
  if (child == 0) {
    redirect(STDIN_FILENO, "/dev/null", O_RDONLY);
    redirect(STDOUT_FILENO, capture / "stdout", O_WRONLY | O_CREAT | O_TRUNC);
    redirect(STDERR_FILENO, capture / "stderr", O_WRONLY | O_CREAT | O_TRUNC);
    if (prepare)
      prepare();
    ::execv(program.c_str(), argumentVector.data());
    ::_exit(126);
  }
  return child;
}

Outcome runProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                   const std::function<void()>& prepare) {
  const TemporaryDirectory capture;
  const pid_t child = startProgram(program, arguments, capture.path(), prepare);
  const int status = waitFor(child);
  Outcome outcome;
  if (WIFSIGNALED(status))
    outcome.signal = WTERMSIG(status);
  else
    outcome.exitStatus = WEXITSTATUS(status);
  outcome.output = readFile(capture / "stdout");
  outcome.error = readFile(capture / "stderr");
  return outcome;
}

}  // namespace rehearse
