#include "platform/security/resource_seal.hpp"
#include "tests/fuzz/fuzz_input.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::run([&] {
    const auto seal = platform::ResourceSeal::read(platform::Data(fuzz::bytesOf(data, size)));
    for (const auto& [path, item] : seal.items)
      seal.rules.omits(path);
    seal.rules.omits("Resources/en.lproj/locversion.plist");
  });
}
