#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

#include "platform/foundation/error.hpp"
#include "rehearse/files/program.hpp"

namespace rehearse {
namespace {

platform::FileDescriptor memoryFile() {
  platform::FileDescriptor file(::memfd_create("capture", MFD_CLOEXEC));
  if (!file.isOpen())
    throw platform::SystemError("No memory is available for what a program writes", errno);
  return file;
}

std::string contentOf(const platform::FileDescriptor& file) {
  struct stat status {};
  if (::fstat(file.get(), &status) != 0)
    throw platform::SystemError("What a program wrote cannot be read", errno);
  std::string content(static_cast<std::size_t>(status.st_size), '\0');
  const auto count = file.readAt(0, content);
  if (!count)
    throw platform::SystemError("What a program wrote cannot be read", errno);
  content.resize(*count);
  return content;
}

void redirect(int stream, int descriptor) {
  if (descriptor < 0 || ::dup2(descriptor, stream) < 0)
    ::_exit(126);
}

}  // namespace

Capture::Capture() : output_(memoryFile()), error_(memoryFile()) {}

std::string Capture::output() const {
  return contentOf(output_);
}

std::string Capture::error() const {
  return contentOf(error_);
}

int waitFor(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR)
      throw std::runtime_error("waitpid failed");
  }
  return status;
}

pid_t startProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                   const Capture& capture, const std::function<void()>& prepare) {
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
    redirect(STDIN_FILENO, ::open("/dev/null", O_RDONLY | O_CLOEXEC));
    redirect(STDOUT_FILENO, capture.outputDescriptor());
    redirect(STDERR_FILENO, capture.errorDescriptor());
    if (prepare)
      prepare();
    ::execv(program.c_str(), argumentVector.data());
    ::_exit(126);
  }
  return child;
}

Outcome runProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                   const std::function<void()>& prepare) {
  const Capture capture;
  const pid_t child = startProgram(program, arguments, capture, prepare);
  const int status = waitFor(child);
  Outcome outcome;
  if (WIFSIGNALED(status))
    outcome.signal = WTERMSIG(status);
  else
    outcome.exitStatus = WEXITSTATUS(status);
  outcome.output = capture.output();
  outcome.error = capture.error();
  return outcome;
}

}  // namespace rehearse
