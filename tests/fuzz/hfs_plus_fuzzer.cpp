#include "platform/hdiutil/compressed_file.hpp"
#include "platform/hdiutil/hfs_plus_catalog.hpp"
#include "tests/fuzz/fuzz_input.hpp"
#include "tests/fuzz/memory_disk.hpp"

using platform::hdiutil::HfsForkKind;

// Every entry has a path, and its content is inside the volume and as long as the entry states.
void fuzz::read(const std::string& bytes) {
  fuzz::MemoryDisk disk(bytes, bytes.size());
  if (!platform::hdiutil::HfsPlusVolume::isAt(disk, 0))
    return;
  platform::hdiutil::HfsPlusVolume volume(disk, 0, bytes.size());
  const auto catalog = readHfsCatalog(volume);
  fuzz::require(catalog.paths.size() == catalog.entries.size());
  readCompressedFiles(volume, catalog.entries);
  for (const auto& entry : catalog.entries) {
    std::uint64_t length = 0;
    for (const auto& piece : volume.pieces(entry.data, entry.identifier, HfsForkKind::data)) {
      fuzz::require(piece.offset <= bytes.size() && piece.length <= bytes.size() - piece.offset);
      length += piece.length;
    }
    fuzz::require(length == entry.data.size);
  }
}
