#include "tests/fuzz/fuzz_input.hpp"
#include "updater/install/bundle_metadata.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::run([&] {
    const auto metadata = QuorinOstrevalUpdater::metadata(fuzz::dataOf(data, size));
    fuzz::requireText(metadata.identifier);
    fuzz::requireText(metadata.version);
    fuzz::requireText(metadata.build);
  });
}
