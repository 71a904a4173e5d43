#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/hdiutil/hfs_plus_volume.hpp"

namespace platform::hdiutil {

/// An entry of an HFS Plus volume, with its name and mode as programs see them: "/" on the disk is ":" in a
/// path.
struct HfsEntry {
  enum class Kind : std::uint8_t { folder, file, symbolicLink };

  Kind kind;
  bool isCompressed;          ///< its content is in an attribute or in the resource fork
  std::uint16_t permissions;  ///< the twelve bits
  std::int64_t modified;      ///< seconds since 1970
  std::uint32_t created;      ///< seconds since 1904
  std::uint32_t identifier;
  std::uint32_t parent;
  /// For a hard link, the number of the file that contains the content; otherwise 0.
  std::uint32_t linkTarget;
  /// True for a file that represents a hard link to a folder.
  bool isFolderLink;
  std::string name;
  HfsFork data;
  HfsFork resource;
};

/// The entries that are visible to a user, without those that the file system reserves for itself.
struct HfsCatalog {
  std::string volumeName;
  HfsEntry root;
  std::vector<HfsEntry> entries;  ///< a folder before its entries
  /// The path of every entry, relative to the root.
  std::vector<std::string> paths;
};

/// Reads all entries. Throws `ImageError` for a damaged catalog, for names that are not valid in a path, for
/// more entries or longer paths than any application has, and for unsupported kinds of entries.
HfsCatalog readHfsCatalog(HfsPlusVolume& volume);

}  // namespace platform::hdiutil
