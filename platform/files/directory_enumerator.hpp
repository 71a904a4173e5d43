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

/// A walk of everything below a directory, to any depth, each directory before what is in it; the order
/// within a directory is the file system's. Links are delivered and not followed. A directory that cannot be
/// read, or that is moved away meanwhile, is delivered and the walk goes on behind it.
///
/// A hidden entry is one whose name starts with a dot: it is neither delivered nor entered. A package is a
/// directory with the extension "app", in any case of its letters: it is delivered and not entered.
///
/// Memory grows with the entries of the directories on the way to the present place; there are three
/// descriptors at most.
class NSDirectoryEnumerator {
 public:
  /// Throws `SystemError` when `root` is not a directory that can be read.
  NSDirectoryEnumerator(const URL& root, DirectoryEnumerationOptions options);

  /// The next entry; nothing at the end.
  std::optional<URL> nextObject();

 private:
  struct Item {
    std::string name;
    bool entered;
  };
  /// A directory that is being delivered.
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
