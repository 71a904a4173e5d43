// The search for an application below a directory, as the updater does it.
#include <cstdio>

#include "platform/foundation/error.hpp"
#include "updater/diskimage/application_discovery.hpp"

int main(int argc, char** argv) {
  try {
    if (argc != 3)
      return 1;
    const auto found =
        QuorinOstrevalUpdater::findApplication(platform::URL::fileURLWithPath(argv[1]), argv[2]);
    return std::puts(found.path().c_str()) >= 0 ? 0 : 1;
  } catch (const platform::Error& error) {
    // Not finding it is a result, not a failure.
    return std::puts(error.what()) >= 0 ? 0 : 1;
  }
}
