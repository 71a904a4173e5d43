#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "platform/files/directory.hpp"
#include "platform/files/url.hpp"

namespace platform {

/// A set of flags.
enum class DirectoryEnumerationOptions : unsigned {
  none = 0,
  skipsSubdirectoryDescendants = 1,
  skipsPackageDescendants = 2,
  skipsHiddenFiles = 4,
};

constexpr DirectoryEnumerationOptions operator|(DirectoryEnumerationOptions one,
                                                DirectoryEnumerationOptions other) {
  return static_cast<DirectoryEnumerationOptions>(static_cast<unsigned>(one) | static_cast<unsigned>(other));
}

/// Walks everything below a directory, to any depth, each directory before its contents and in the file
/// system's order. Links are returned but not followed. If a directory cannot be read, or is moved away
/// during the walk, the walk continues after it.
///
/// A hidden entry is one whose name starts with a dot: it is neither returned nor entered. A package is a
/// directory with the extension "app", in any letter case: it is returned but not entered.
///
/// Memory grows with the number of entries in the current directory and its ancestors. At most three
/// descriptors are open.
class NSDirectoryEnumerator {
 public:
  /// Throws `SystemError` unless `root` is a readable directory.
  NSDirectoryEnumerator(const URL& root, DirectoryEnumerationOptions options);

  /// The next entry; nothing at the end.
  std::optional<URL> nextObject();

 private:
  struct Item {
    std::string name;
    bool entered;
  };
  /// The current directory or one of its ancestors.
  struct Level {
    URL url;
    std::string name;
    FileIdentity identity;
    std::vector<Item> items;
    std::size_t next;
  };

  bool has(DirectoryEnumerationOptions option) const;
  bool isSkippedPackage(const std::string& name) const;
  void descend(FileDescriptor directory, const URL& url, const std::string& name);
  std::vector<Item> itemsOf(const FileDescriptor& directory, const URL& url) const;
  void ascend();
  bool stepUp();
  void reopen();
  bool take(FileDescriptor directory);

  DirectoryEnumerationOptions options_;
  FileDescriptor root_;
  FileDescriptor current_;
  std::vector<Level> levels_;
  bool descends_ = false;
};

}  // namespace platform
