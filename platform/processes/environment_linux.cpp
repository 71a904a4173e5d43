#include <unistd.h>

#include "platform/processes/environment.hpp"

namespace platform {
namespace {

/// The variables where they were, with a null pointer in the place of the first, which is kept beside.
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

// The sanitizers have not begun when this runs.
__attribute__((no_sanitize("address", "undefined"))) void moveEnvironmentAside(char** environment) noexcept {
  variables = environment;
  first = *environment;
  *environment = nullptr;
}

}  // namespace platform
