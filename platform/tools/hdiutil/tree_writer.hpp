#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/file_descriptor.hpp"

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
/// `ImageError` for an entry that the image holds twice and else a `SystemError` naming the entry.
class TreeWriter {
 public:
  /// `root` outlives the writer.
  explicit TreeWriter(const FileDescriptor& root) : root_(root) {}

  void makeDirectory(const std::string& path);
  void makeFile(const std::string& path);
  void makeSymbolicLink(const std::string& path, const std::string& text);
  void makeHardLink(const std::string& existing, const std::string& path);

  /// Writes a part of a file that was made here. The file written last stays open for the next part.
  void write(const std::string& path, std::uint64_t offset, std::span<const char> bytes);

  /// The root itself has the path ".". Bits that would give away a user's or group's rights are not set.
  void setMetadata(const std::string& path, const EntryMetadata& metadata);

  /// Where an entry is: the folder that holds it, open until the next call, and its name in there.
  struct Place {
    const FileDescriptor& folder;
    std::string name;
  };
  Place find(const std::string& path);

 private:
  void close();

  const FileDescriptor& root_;
  FileDescriptor folder_;
  std::vector<std::string> folderNames_;
  FileDescriptor open_;
  std::string openPath_;
};

}  // namespace platform::hdiutil
