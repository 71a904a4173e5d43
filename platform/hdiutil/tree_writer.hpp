#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files/directory.hpp"

namespace platform::hdiutil {

/// A volume that was read.
struct VolumeTree {
  std::string name;
  /// The path of its tree below the directory that was given for all volumes; nothing when the volume is not
  /// to be mounted.
  std::optional<std::string> tree;
};

/// Names in the root folder of a volume that any file system reserves for the system.
inline constexpr std::array<std::string_view, 5> kHousekeepingNames{
    ".Spotlight-V100", ".fseventsd", ".Trashes", ".DocumentRevisions-V100", ".TemporaryItems"};

/// The metadata of an entry in a tree.
struct EntryMetadata {
  bool isSymbolicLink;
  std::uint16_t permissions;  ///< the twelve bits; ignored for a symbolic link
  struct Time {
    std::int64_t seconds;  ///< since 1970
    std::int64_t nanoseconds;
  } modified;
};

/// True for a valid name of an entry: not empty, neither "." nor "..", and without slashes and null
/// characters.
bool isEntryName(std::string_view name);

/// The names in the path of an entry. Throws `ImageError` when one of them is not valid.
std::vector<std::string> namesInPath(std::string_view path);

/// Creates the entries of a tree below an open directory, by their paths in it. It never follows a symbolic
/// link and never leaves that directory. Throws `ImageError` when an entry exists already, so that the image
/// contains it twice, and otherwise `SystemError` naming the entry. From one entry to the next it opens only
/// the folders between them, so that in a walk through the tree the cost of an entry is independent of its
/// depth. Only one thread may use it, and no other process may change the tree.
class TreeWriter {
 public:
  explicit TreeWriter(const Directory& root) : root_(root), folder_(root) {}

  void makeDirectory(const std::string& path);
  void makeEmptyFile(const std::string& path);
  void makeSymbolicLink(const std::string& path, const std::string& text);
  /// Creates a hard link to `file`, which is on the same file system.
  void linkFile(const Entry& file, const std::string& path);

  /// The path of the root is ".". Set-user-ID, set-group-ID and sticky bits are not set.
  void setMetadata(const std::string& path, const EntryMetadata& metadata);

  /// Opens the folder that contains an entry, which need not exist.
  Entry find(const std::string& path);

 private:
  void enter(std::string_view folder);

  Directory root_;
  Directory folder_;
  std::string folderPath_;  ///< empty for the root
};

}  // namespace platform::hdiutil
