#include "platform/processes/spawn.hpp"

#include <cerrno>

#include "platform/files/file_descriptor.hpp"
#include "platform/foundation/error.hpp"
#include "platform/processes/environment.hpp"
#include "platform/processes/program_start.hpp"

namespace platform {
namespace {

std::vector<char*> pointersTo(std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  pointers.reserve(strings.size() + 1);
  for (std::string& string : strings)
    pointers.push_back(string.data());
  pointers.push_back(nullptr);
  return pointers;
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
  const std::vector<char*> arguments = pointersTo(words);
  auto variables = request.environment.value_or(std::vector<std::string>());
  const std::vector<char*> environment = request.environment ? pointersTo(variables) : inheritedEnvironment();
  return startProgram(request, {path, arguments.data(), environment.data()});
}

void throwNotStarted(const SpawnRequest& request, int errorNumber) {
  throw SystemError(quoted(request.executable.path()) + " could not be started", errorNumber);
}

}  // namespace platform
