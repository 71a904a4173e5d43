#include "platform/security/code_blobs.hpp"
#include "platform/security/code_directory.hpp"
#include "tests/fuzz/fuzz_input.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::run([&] {
    for (const auto& [number, blob] : platform::readEmbeddedSignature(fuzz::bytesOf(data, size))) {
      if (number == platform::slot::kCodeDirectory)
        platform::CodeDirectory::read(blob);
    }
  });
}
