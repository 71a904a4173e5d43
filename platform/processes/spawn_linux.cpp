#include <spawn.h>
#include <unistd.h>

#include <csignal>

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

void setSignalsToDefault(Attributes& attributes, Session session) {
  sigset_t none;
  sigset_t all;
  ::sigemptyset(&none);
  ::sigfillset(&all);
  require(::posix_spawnattr_setsigmask(attributes.get(), &none));
  require(::posix_spawnattr_setsigdefault(attributes.get(), &all));
  const int flags =
      POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | (session == Session::own ? POSIX_SPAWN_SETSID : 0);
  require(::posix_spawnattr_setflags(attributes.get(), static_cast<short>(flags)));
}

void setStreams(FileActions& actions, const std::array<int, 3>& streams) {
  for (int number = 0; number < 3; ++number)
    require(::posix_spawn_file_actions_adddup2(actions.get(), streams.at(static_cast<std::size_t>(number)),
                                               number));
  require(::posix_spawn_file_actions_addclosefrom_np(actions.get(), 3));
}

}  // namespace

std::int32_t spawn(const SpawnRequest& request) {
  const char* path = systemPath(request.executable);
  std::vector<std::string> texts{request.executable.path()};
  texts.insert(texts.end(), request.arguments.begin(), request.arguments.end());
  std::vector<char*> argumentVector;
  for (std::string& text : texts) {
    if (text.find('\0') != std::string::npos)
      throw SystemError("An argument for " + quoted(request.executable.path()) + " holds a null character",
                        EINVAL);
    argumentVector.push_back(text.data());
  }
  argumentVector.push_back(nullptr);

  FileActions actions;
  if (!request.workingDirectory.empty())
    require(::posix_spawn_file_actions_addchdir_np(actions.get(), request.workingDirectory.c_str()));
  setStreams(actions, request.standardStreams);
  Attributes attributes;
  setSignalsToDefault(attributes, request.session);

  const std::vector<char*> environment = inheritedEnvironment();
  pid_t child = 0;
  const int failure =
      ::posix_spawn(&child, path, actions.get(), attributes.get(), argumentVector.data(), environment.data());
  if (failure != 0)
    throw SystemError(quoted(request.executable.path()) + " could not be started", failure);
  return child;
}

}  // namespace platform
