#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/foundation/file_descriptor.hpp"
#include "platform/foundation/url.hpp"
#include "platform/tools/hdiutil/tree_writer.hpp"
#include "platform/tools/hdiutil/volume_tree.hpp"

namespace platform::hdiutil {

/// The program that unpacks images and reads the file systems which are not read here.
inline constexpr const char* kSevenZip = "/usr/bin/7zz";

/// How a child reads the file that is its standard input, where it needs more than its bytes in order.
inline constexpr const char* kStandardInputPath = "/proc/self/fd/0";

/// An entry as that program lists it.
struct ListedEntry {
  enum class Kind : std::uint8_t { folder, file, symbolicLink };

  std::string path;
  Kind kind = Kind::file;
  std::uint64_t size = 0;
  std::string linkText;
  EntryMetadata metadata{};
};

struct VolumeListing {
  std::string volumeName;
  std::vector<ListedEntry> entries;  ///< without the file system's housekeeping
};

/// Reads a technical listing. Throws `ImageError` for one that cannot be understood without doubt, such as
/// that of a volume whose names hold line breaks, and for names that cannot stand in a path.
VolumeListing parseListing(const std::string& text);

enum class SevenZipFileSystem : std::uint8_t { apfs, fat };

/// Writes the tree of the volume that is all of `volume` into the empty directory `tree`, and compares it
/// with the listing, entry by entry. Entries of a file system without permissions have all of them. Throws
/// `ImageError` for what cannot be written as it is; the tree is then incomplete.
VolumeTree writeListedTree(const FileDescriptor& volume, SevenZipFileSystem fileSystem, const URL& tree);

}  // namespace platform::hdiutil
