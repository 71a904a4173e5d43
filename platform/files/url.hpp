#pragma once

#include <string>
#include <string_view>

namespace platform {

/// The location of a file or directory, which may or may not exist. A value; equal when the paths are equal.
class URL {
 public:
  /// Resolves a relative path against the current directory and drops trailing slashes. Accesses no file and
  /// does not fail: if the current directory no longer exists, the path remains relative.
  static URL fileURLWithPath(std::string_view path);

  /// An absolute path without a trailing slash, or "/"; relative only if the current directory did not exist.
  const std::string& path() const noexcept { return path_; }

  /// The last component; "/" for the root.
  std::string lastPathComponent() const;

  /// The part of the last component after its last dot; empty if it contains no dot.
  std::string pathExtension() const;

  /// The directory that contains the item; the root for the root.
  URL deletingLastPathComponent() const;

  /// The path with `text` appended after a slash; `text` may consist of several components.
  URL appendingPathComponent(std::string_view text) const;

  /// The same location without ".", ".." and repeated slashes. As for the system, ".." after a symbolic link
  /// is the parent of the link's target; only such links are resolved.
  URL standardizedFileURL() const;

  bool operator==(const URL&) const = default;

 private:
  explicit URL(std::string path) : path_(std::move(path)) {}

  std::string path_;
};

}  // namespace platform
