#include "platform/hdiutil/seven_zip.hpp"
#include "tests/fuzz/fuzz_input.hpp"

// Every entry that is read has a path that stays where it belongs.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::run([&] {
    const auto listing = platform::hdiutil::parseListing(fuzz::bytesOf(data, size));
    for (const auto& entry : listing.entries)
      fuzz::again([&] { return platform::hdiutil::namesInPath(entry.path); });
  });
}
