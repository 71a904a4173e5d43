#include "platform/security/resource_seal.hpp"
#include "tests/fuzz/fuzz_input.hpp"

void fuzz::read(const std::string& bytes) {
  const auto seal = platform::ResourceSeal::read(platform::Data(bytes));
  for (const auto& [path, item] : seal.items)
    seal.rules.omits(path);
  seal.rules.omits("Resources/en.lproj/locversion.plist");
}
