#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "platform/foundation/error.hpp"
#include "platform/open/application_launch.hpp"
#include "platform/processes/process.hpp"

namespace {

platform::URL bundleNamedBy(const std::vector<std::string>& arguments) {
  if (arguments.size() != 3 || arguments[1] != "-n")
    throw platform::Error("Usage: open -n APPLICATION");
  return platform::URL::fileURLWithPath(arguments[2]).standardizedFileURL();
}

}  // namespace

int main() {
  platform::ProcessInfo::secureStandardStreams();
  try {
    platform::open::launchApplication(bundleNamedBy(platform::ProcessInfo::arguments()));
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    static_cast<void>(std::fprintf(stderr, "%s\n", error.what()));
    return EXIT_FAILURE;
  }
}
