// Attaches or detaches an image as the updater does, with the tools of the prefix that this program lies in,
// and prints what came of it.
#include <iostream>
#include <string>
#include <vector>

#include "platform/foundation/error.hpp"
#include "updater/diskimage/mounted_image.hpp"

using platform::URL;

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  try {
    if (arguments.at(0) == "attach") {
      const auto image = QuorinOstrevalUpdater::attach(URL::fileURLWithPath(arguments.at(1)));
      std::cout << image.url.path() << '|' << image.device.value_or("no device");
    } else {
      const bool hasDevice = arguments.size() > 2;
      QuorinOstrevalUpdater::detach(
          {URL::fileURLWithPath(arguments.at(1)), hasDevice ? std::optional(arguments[2]) : std::nullopt});
      std::cout << "detached";
    }
  } catch (const platform::Error& error) {
    std::cout << "error: " << error.localizedDescription();
  }
  return 0;
}
