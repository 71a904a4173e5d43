#pragma once

#include <string>
#include <string_view>

namespace platform {

/// The location of a file or directory, which may or may not exist. A value; equal when the paths are equal.
class URL {
 public:
  /// A relative path is taken against the current directory, and slashes at the end are dropped. Looks at no
  /// file and cannot fail: where the current directory no longer exists, the path stays relative.
  static URL fileURLWithPath(std::string_view path);

  /// An absolute path, without a slash at its end unless it is the root itself; a relative one where the
  /// current directory no longer exists.
  const std::string& path() const noexcept { return path_; }

  /// The last component; "/" for the root.
  std::string lastPathComponent() const;

  /// The text behind the last dot of the last component; empty when there is none.
  std::string pathExtension() const;

  /// The directory that holds the item; the root for the root.
  URL deletingLastPathComponent() const;

  /// The path with `text` behind it; `text` may hold several components.
  URL appendingPathComponent(std::string_view text) const;

  /// The same location without ".", ".." and repeated slashes. A ".." behind a symbolic link means the parent
  /// of what the link leads to, as it does for the system, so only there links are resolved.
  URL standardizedFileURL() const;

  bool operator==(const URL&) const = default;

 private:
  explicit URL(std::string path) : path_(std::move(path)) {}

  std::string path_;
};

}  // namespace platform
