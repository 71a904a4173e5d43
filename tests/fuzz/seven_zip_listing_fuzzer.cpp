#include "platform/hdiutil/seven_zip.hpp"
#include "tests/fuzz/fuzz_input.hpp"

// Every entry that is read has a path that stays where it belongs.
void fuzz::read(const std::string& bytes) {
  const auto listing = platform::hdiutil::parseListing(bytes);
  for (const auto& entry : listing.entries)
    fuzz::again([&] { return platform::hdiutil::namesInPath(entry.path); });
}
