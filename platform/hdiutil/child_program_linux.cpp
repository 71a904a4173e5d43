#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "platform/files/file_descriptor.hpp"
#include "platform/foundation/error.hpp"
#include "platform/foundation/system_call.hpp"
#include "platform/hdiutil/child_program.hpp"

namespace platform::hdiutil {
namespace {

/// What runs between fork and exec. Only returns when something failed, with `errno`.
void become(const char* path, char* const* arguments, char* const* environment,
            const std::array<int, 3>& standardStreams, pid_t parent) {
  if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0)
    return;
  // The parent may have died before that took effect.
  if (::getppid() != parent) {
    errno = ESRCH;
    return;
  }
  for (int stream = 0; stream < 3; ++stream) {
    if (::dup2(standardStreams.at(static_cast<std::size_t>(stream)), stream) < 0)
      return;
  }
  // Ignored signals are the one thing that a program would inherit in spite of everything.
  if (::signal(SIGPIPE, SIG_DFL) == SIG_ERR || ::signal(SIGXFSZ, SIG_DFL) == SIG_ERR)
    return;
  ::execve(path, arguments, environment);
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (std::string& text : texts)
    result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

}  // namespace

FileDescriptor memoryFile() {
  FileDescriptor file(::memfd_create("output", MFD_CLOEXEC));
  if (!file.isOpen())
    throw SystemError("The output of a program could not be kept", errno);
  return file;
}

ChildProgram::ChildProgram(const std::string& path, const std::vector<std::string>& arguments,
                           const std::array<int, 3>& standardStreams) {
  std::vector<std::string> texts{path};
  texts.insert(texts.end(), arguments.begin(), arguments.end());
  std::vector<std::string> variables{"LC_ALL=C.UTF-8", "TZ=UTC0"};
  const std::vector<char*> argumentVector = pointers(texts);
  const std::vector<char*> environment = pointers(variables);

  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0)
    throw SystemError(quoted(path) + " could not be started", errno);
  const FileDescriptor failureReader(ends[0]);
  FileDescriptor failureWriter(ends[1]);
  const pid_t parent = ::getpid();
  processIdentifier_ = ::fork();
  if (processIdentifier_ < 0)
    throw SystemError(quoted(path) + " could not be started", errno);
  if (processIdentifier_ == 0) {
    become(path.c_str(), argumentVector.data(), environment.data(), standardStreams, parent);
    const int reason = errno;
    const bool isTold = ::write(failureWriter.get(), &reason, sizeof reason) == sizeof reason;
    ::_exit(isTold ? 127 : 126);  // untold, it still is no success
  }
  failureWriter = FileDescriptor();
  int reason = 0;
  if (failureReader.read(&reason, sizeof reason, path) == sizeof reason) {
    succeeds();
    throw SystemError(quoted(path) + " could not be started", reason);
  }
}

ChildProgram::~ChildProgram() {
  if (processIdentifier_ <= 0)
    return;
  ::kill(processIdentifier_, SIGKILL);
  // Nobody asks any more how it ended.
  static_cast<void>(uninterrupted([this] { return ::waitpid(processIdentifier_, nullptr, 0); }));
}

bool ChildProgram::succeeds() {
  int status = 0;
  const pid_t child = processIdentifier_;
  processIdentifier_ = 0;
  if (uninterrupted([&] { return ::waitpid(child, &status, 0); }) < 0)
    throw SystemError("The end of a program could not be awaited", errno);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace platform::hdiutil
