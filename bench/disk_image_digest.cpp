// The digest of a file, as the updater computes it.
#include <cstdio>

#include "platform/foundation/error.hpp"
#include "updater/diskimage/file_digest.hpp"

int main(int argc, char** argv) {
  try {
    return argc == 2 &&
                   std::puts(
                       QuorinOstrevalUpdater::sha256(platform::URL::fileURLWithPath(argv[1])).c_str()) >= 0
               ? 0
               : 1;
  } catch (const platform::Error&) {
    return 1;
  }
}
