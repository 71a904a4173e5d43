#include <spawn.h>

#include <cerrno>
#include <csignal>

#include "platform/processes/program_start.hpp"

namespace platform {
namespace {

/// For the functions of the posix_spawn family, which return the error number.
void require(const SpawnRequest& request, int errorNumber) {
  if (errorNumber != 0)
    throwNotStarted(request, errorNumber);
}

class FileActions {
 public:
  explicit FileActions(const SpawnRequest& request) {
    require(request, ::posix_spawn_file_actions_init(&actions_));
  }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
  // Cannot fail for what was initialised; the same below.
  ~FileActions() { static_cast<void>(::posix_spawn_file_actions_destroy(&actions_)); }

  posix_spawn_file_actions_t* get() { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

class Attributes {
 public:
  explicit Attributes(const SpawnRequest& request) { require(request, ::posix_spawnattr_init(&attributes_)); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  ~Attributes() { static_cast<void>(::posix_spawnattr_destroy(&attributes_)); }

  posix_spawnattr_t* get() { return &attributes_; }

 private:
  posix_spawnattr_t attributes_{};
};

void setFileActions(FileActions& actions, const SpawnRequest& request) {
  if (!request.workingDirectory.empty())
    require(request, ::posix_spawn_file_actions_addchdir_np(actions.get(), request.workingDirectory.c_str()));
  for (int number = 0; number < 3; ++number) {
    const int descriptor = request.standardStreams.at(static_cast<std::size_t>(number));
    // Duplicating a descriptor to itself would not keep it open.
    require(request, descriptor == number
                         ? ::posix_spawn_file_actions_addinherit_np(actions.get(), number)
                         : ::posix_spawn_file_actions_adddup2(actions.get(), descriptor, number));
  }
}

/// Default signals, none of them blocked; every descriptor is closed that the file actions do not name.
void setAttributes(Attributes& attributes, const SpawnRequest& request) {
  sigset_t none;
  sigset_t all;
  sigemptyset(&none);  // macros there
  sigfillset(&all);
  sigdelset(&all, SIGKILL);  // neither has another disposition
  sigdelset(&all, SIGSTOP);
  require(request, ::posix_spawnattr_setsigmask(attributes.get(), &none));
  require(request, ::posix_spawnattr_setsigdefault(attributes.get(), &all));
  const int flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_CLOEXEC_DEFAULT |
                    (request.session == Session::own ? POSIX_SPAWN_SETSID : 0);
  require(request, ::posix_spawnattr_setflags(attributes.get(), static_cast<short>(flags)));
}

}  // namespace

std::int32_t startProgram(const SpawnRequest& request, const ProgramImage& program) {
  if (request.diesWithParent)
    throwNotStarted(request, ENOTSUP);
  FileActions actions(request);
  setFileActions(actions, request);
  Attributes attributes(request);
  setAttributes(attributes, request);
  pid_t child = 0;
  require(request, ::posix_spawn(&child, program.path, actions.get(), attributes.get(), program.arguments,
                                 program.environment));
  return child;
}

}  // namespace platform
