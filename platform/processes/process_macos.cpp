#include <crt_externs.h>

#include "platform/processes/process.hpp"

namespace platform {

std::vector<std::string> ProcessInfo::arguments() {
  char** const first = *::_NSGetArgv();
  return {first, first + *::_NSGetArgc()};
}

// The system's own tools, which its protection keeps from being changed.
URL toolLocation(const URL& executable) {
  return executable;
}

}  // namespace platform
