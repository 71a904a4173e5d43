#include "tests/fuzz/fuzz_input.hpp"
#include "updater/diskimage/mounted_image.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::run([&] {
    const auto mounted = QuorinOstrevalUpdater::mountedImage(fuzz::dataOf(data, size));
    if (!mounted)
      return;
    fuzz::requireText(mounted->url.path());
    fuzz::requireText(mounted->device.value_or(""));
  });
}
