#include "platform/security/code_directory.hpp"
#include "tests/fuzz/fuzz_input.hpp"

void fuzz::read(const std::string& bytes) {
  const std::string blob = bytes;
  const auto directory = platform::CodeDirectory::read(blob);
  std::size_t total = directory.codeDirectoryHash().size();
  for (std::uint32_t page = 0; page < directory.pageCount(); ++page)
    total += directory.pageDigest(page).size();
  for (std::uint32_t slot = 0; slot <= directory.specialSlotCount(); ++slot)
    total += directory.specialDigest(slot).value_or("").size();
  // All digests lie side by side in the blob.
  fuzz::require(total <= blob.size() + 20);
}
