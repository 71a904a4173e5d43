#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/files/file_descriptor.hpp"
#include "platform/files/url.hpp"
#include "platform/hdiutil/tree_writer.hpp"
#include "platform/hdiutil/volume_tree.hpp"

namespace platform::hdiutil {

/// The path of 7-Zip, which unpacks images and reads the file systems that are not read here. Throws
/// `ImageError` when it is not installed or too old. Determined once per process.
const std::string& sevenZip();

/// The first of these programs that is a 7-Zip new enough; missing ones are skipped. Throws `ImageError`.
std::string suitableSevenZip(const std::vector<std::string>& programs);

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

struct ListedVolume {
  std::string name;
  std::string identifier;  ///< its UUID in hexadecimal digits; empty for FAT
  std::string folder;      ///< the first name in the paths of its entries; empty for the only volume
  bool isNamed = false;
};

struct VolumeListing {
  std::vector<ListedVolume> volumes;  ///< never empty
  std::vector<ListedEntry> entries;   ///< without the volumes' folders and the file system's housekeeping
};

/// Reads a technical listing of one volume, or of all in a container. Throws `ImageError` for one that cannot
/// be understood without doubt, such as that of a volume whose names hold line breaks, and for names that
/// cannot stand in a path.
VolumeListing parseListing(const std::string& text);

/// Writes the tree of the volume that is all of `volume` into the empty directory `tree`, compares it with
/// the listing, entry by entry, and returns the volume's name. Entries have all permissions. Throws
/// `ImageError` for what cannot be written as it is; the tree is then incomplete.
std::string writeFatTree(const FileDescriptor& volume, const URL& tree);

/// The same for a container, with a tree for each of its volumes that the system mounts. Permissions are
/// those of the entries. Throws `UnsupportedImageError` when all of these are encrypted.
std::vector<VolumeTree> writeApfsTrees(const FileDescriptor& container, const URL& tree);

}  // namespace platform::hdiutil
