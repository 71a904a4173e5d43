#include <unistd.h>

#include "platform/processes/environment.hpp"

namespace platform {
namespace {

/// The environment moved aside: a null pointer replaces its first variable, which is kept in `first`.
char** variables = nullptr;
char* first = nullptr;

}  // namespace

std::vector<char*> inheritedEnvironment() {
  std::vector<char*> result;
  if (first != nullptr)
    result.push_back(first);
  char** rest = variables == nullptr ? environ : first == nullptr ? variables : variables + 1;
  for (; rest != nullptr && *rest != nullptr; ++rest)
    result.push_back(*rest);
  result.push_back(nullptr);
  return result;
}

// Runs before the sanitizers are initialised.
__attribute__((no_sanitize("address", "undefined"))) void moveEnvironmentAside(char** environment) noexcept {
  variables = environment;
  first = *environment;
  *environment = nullptr;
}

}  // namespace platform
