#include <sys/stat.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

#include "platform/ditto/tree_copy.hpp"

namespace {

int fail(const std::string& sentence) {
  std::cerr << sentence << '\n';
  return EXIT_FAILURE;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  const bool complete = argumentCount == 3 && *arguments[1] != '\0' && *arguments[2] != '\0';
  if (!complete)
    return fail("Usage: ditto SOURCE DESTINATION, where DESTINATION does not exist yet.");
  // Exceeding RLIMIT_FSIZE is then EFBIG, a failure with a reason, and not a silent death.
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
  // Modes are copied exactly; until then the owner must be able to write to new files and directories.
  ::umask(0);
  try {
    platform::ditto::copyTree(platform::URL::fileURLWithPath(arguments[1]),
                              platform::URL::fileURLWithPath(arguments[2]));
    return EXIT_SUCCESS;
  } catch (const std::exception& failure) {
    return fail(failure.what());
  }
}
