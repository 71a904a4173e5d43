#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/files/file_descriptor.hpp"
#include "platform/files/url.hpp"
#include "platform/hdiutil/tree_writer.hpp"

namespace platform::hdiutil {

/// The path of 7-Zip, which unpacks images and reads APFS and FAT. Determined once per process, by any
/// thread. Throws `ImageError` when it is not installed or too old.
const std::string& sevenZip();

/// The first of these programs that is a new enough 7-Zip; missing ones are skipped. Throws `ImageError`
/// when none is, and `SystemError` when one cannot be executed.
std::string suitableSevenZip(const std::vector<std::string>& programs);

/// The path by which a child opens its standard input as a file, for random access.
inline constexpr const char* kStandardInputPath = "/proc/self/fd/0";

/// An entry in the listing of 7-Zip.
struct ListedEntry {
  enum class Kind : std::uint8_t { folder, file, symbolicLink };

  std::string path;
  Kind kind = Kind::file;
  std::uint64_t size = 0;
  std::string linkText;
  EntryMetadata metadata{};
};

struct ListedVolume {
  std::string name;
  std::string identifier;  ///< its UUID in hexadecimal digits; empty for FAT
  std::string folder;      ///< the first name in the paths of its entries; empty for the only volume
  bool isNamed = false;
};

struct VolumeListing {
  std::vector<ListedVolume> volumes;  ///< never empty
  std::vector<ListedEntry> entries;   ///< without the volumes' folders and the system's own entries
};

/// Parses the technical listing ("-slt") of a volume, or of all volumes in a container. Throws `ImageError`
/// for an ambiguous listing, such as that of a volume with line breaks in its names, and for names that are
/// not valid in a path.
VolumeListing parseListing(const std::string& text);

/// Writes the tree of the FAT volume that fills the file `volume` into the empty directory `tree`, compares
/// it with the listing, entry by entry, and returns the volume's name. Entries have all permissions. Throws
/// `ImageError` for entries that cannot be represented, and `SystemError`; the tree is then incomplete.
std::string writeFatTree(const FileDescriptor& volume, const URL& tree);

/// The same for an APFS container, with a tree for each volume that the system mounts and that is not
/// encrypted. Entries have their own permissions. Throws `UnsupportedImageError` when all of these volumes
/// are encrypted.
std::vector<VolumeTree> writeApfsTrees(const FileDescriptor& container, const URL& tree);

}  // namespace platform::hdiutil
