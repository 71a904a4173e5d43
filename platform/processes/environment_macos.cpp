#include <crt_externs.h>

#include "platform/processes/environment.hpp"

namespace platform {

std::vector<char*> inheritedEnvironment() {
  std::vector<char*> result;
  for (char** variable = *::_NSGetEnviron(); variable != nullptr && *variable != nullptr; ++variable)
    result.push_back(*variable);
  result.push_back(nullptr);
  return result;
}

}  // namespace platform
