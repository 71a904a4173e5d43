#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "platform/hdiutil/compressed_file.hpp"
#include "platform/hdiutil/hfs_plus_catalog.hpp"
#include "platform/hdiutil/hfs_plus_volume.hpp"

namespace platform::hdiutil {

/// Which pieces of a volume make up the content of which entries. Entries are numbered as in the catalog. Of
/// the hard links to a file, only the first has content of its own.
struct HfsContent {
  /// A piece of the volume and the entry whose content it is a part of.
  struct Part {
    HfsPiece piece;
    std::size_t entry;
    std::uint64_t fileOffset;
  };

  std::vector<Part> parts;                                 ///< in the order of the disk
  std::unordered_map<std::size_t, std::size_t> hardLinks;  ///< every hard link but the first, to the first
  /// For the compressed files in resource forks, the offsets of these forks when they are stored one after
  /// the other, and their total size in bytes.
  std::unordered_map<std::size_t, std::uint64_t> resourceForks;
  std::uint64_t resourceForksSize = 0;
  std::uint64_t unpackedSize = 0;  ///< of all files and links, in bytes
  CompressedFiles compressedFiles;

  /// The entry that `index` is a hard link to, else `index`.
  std::size_t source(std::size_t index) const;

  /// How the entry is compressed; null when it is not.
  const CompressedFile* compressedFile(const HfsEntry& entry) const;
};

/// Locates the content of all entries of `catalog`, which is that of the volume. Throws `ImageError` for
/// damage, and `ImageLimitError` for more pieces or longer links than any application has.
HfsContent locateContent(HfsPlusVolume& volume, const HfsCatalog& catalog);

}  // namespace platform::hdiutil
