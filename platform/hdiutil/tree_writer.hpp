#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files/directory.hpp"

namespace platform::hdiutil {

/// What an entry of a tree has besides its content.
struct EntryMetadata {
  bool isSymbolicLink;
  std::uint16_t permissions;  ///< the twelve bits; those of a link are the system's own
  struct Time {
    std::int64_t seconds;  ///< since 1970
    std::int64_t nanoseconds;
  } modified;
};

/// True for what can be the name of an entry: not empty, neither "." nor "..", without slash and null
/// character.
bool isEntryName(std::string_view name);

/// The names in the path of an entry. Throws `ImageError` when one of them cannot be a name.
std::vector<std::string> namesInPath(std::string_view path);

/// Makes the entries of a tree below an open directory, by their paths in it. It follows no link on the way
/// to an entry and never leaves that directory. Whatever exists already is a failure, which is an
/// `ImageError` for an entry that the image contains twice and else a `SystemError` naming the entry. From
/// one entry to the next it opens only the folders between them: a walk through the tree costs the same for
/// each entry, however deep it is.
class TreeWriter {
 public:
  explicit TreeWriter(const Directory& root) : root_(root), folder_(root) {}

  void makeDirectory(const std::string& path);
  void makeEmptyFile(const std::string& path);
  void makeSymbolicLink(const std::string& path, const std::string& text);
  /// Makes a hard link in the tree.
  void linkFile(const Entry& file, const std::string& path);

  /// The root itself has the path ".". Bits that would give away a user's or group's rights are not set.
  void setMetadata(const std::string& path, const EntryMetadata& metadata);

  /// Opens the folder that contains an entry.
  Entry find(const std::string& path);

 private:
  void enter(std::string_view folder);

  Directory root_;
  Directory folder_;
  std::string folderPath_;  ///< empty for the root
};

}  // namespace platform::hdiutil
