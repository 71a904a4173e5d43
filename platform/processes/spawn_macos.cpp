#include <spawn.h>

#include <csignal>

#include "platform/files/file_descriptor.hpp"
#include "platform/foundation/error.hpp"
#include "platform/processes/environment.hpp"
#include "platform/processes/spawn.hpp"

namespace platform {
namespace {

/// Throws for the error number that a function of the posix_spawn family returned.
void require(int errorNumber) {
  if (errorNumber != 0)
    throw SystemError("The start of a program could not be prepared", errorNumber);
}

class FileActions {
 public:
  FileActions() { require(::posix_spawn_file_actions_init(&actions_)); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
  ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }

  posix_spawn_file_actions_t* get() { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

class Attributes {
 public:
  Attributes() { require(::posix_spawnattr_init(&attributes_)); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  ~Attributes() { ::posix_spawnattr_destroy(&attributes_); }

  posix_spawnattr_t* get() { return &attributes_; }

 private:
  posix_spawnattr_t attributes_{};
};

/// Default signals, none of them blocked; every descriptor is closed that the file actions do not name.
void setAttributes(Attributes& attributes, Session session) {
  sigset_t none;
  sigset_t all;
  sigemptyset(&none);  // macros there
  sigfillset(&all);
  sigdelset(&all, SIGKILL);  // neither has another disposition
  sigdelset(&all, SIGSTOP);
  require(::posix_spawnattr_setsigmask(attributes.get(), &none));
  require(::posix_spawnattr_setsigdefault(attributes.get(), &all));
  const int flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_CLOEXEC_DEFAULT |
                    (session == Session::own ? POSIX_SPAWN_SETSID : 0);
  require(::posix_spawnattr_setflags(attributes.get(), static_cast<short>(flags)));
}

void setStreams(FileActions& actions, const std::array<int, 3>& streams) {
  for (int number = 0; number < 3; ++number) {
    const int descriptor = streams.at(static_cast<std::size_t>(number));
    // Duplicating a descriptor to itself would not keep it open.
    require(descriptor == number ? ::posix_spawn_file_actions_addinherit_np(actions.get(), number)
                                 : ::posix_spawn_file_actions_adddup2(actions.get(), descriptor, number));
  }
}

std::vector<char*> pointersTo(std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  pointers.reserve(strings.size() + 1);
  for (std::string& string : strings)
    pointers.push_back(string.data());
  pointers.push_back(nullptr);
  return pointers;
}

[[noreturn]] void fail(const SpawnRequest& request, int errorNumber) {
  throw SystemError(quoted(request.executable.path()) + " could not be started", errorNumber);
}

}  // namespace

std::int32_t spawn(const SpawnRequest& request) {
  const char* path = systemPath(request.executable);
  std::vector<std::string> words{request.executable.path()};
  words.insert(words.end(), request.arguments.begin(), request.arguments.end());
  for (const std::string& word : words) {
    if (word.find('\0') != std::string::npos)
      throw SystemError("An argument for " + quoted(request.executable.path()) + " contains a null character",
                        EINVAL);
  }
  if (request.diesWithParent)
    fail(request, ENOTSUP);
  const std::vector<char*> arguments = pointersTo(words);
  auto variables = request.environment.value_or(std::vector<std::string>());
  const std::vector<char*> environment = request.environment ? pointersTo(variables) : inheritedEnvironment();

  FileActions actions;
  if (!request.workingDirectory.empty())
    require(::posix_spawn_file_actions_addchdir_np(actions.get(), request.workingDirectory.c_str()));
  setStreams(actions, request.standardStreams);
  Attributes attributes;
  setAttributes(attributes, request.session);

  pid_t child = 0;
  const int failure =
      ::posix_spawn(&child, path, actions.get(), attributes.get(), arguments.data(), environment.data());
  if (failure != 0)
    fail(request, failure);
  return child;
}

}  // namespace platform
