#pragma once

#include <sys/stat.h>

#include <string>

#include "platform/files/file_descriptor.hpp"

namespace platform::ditto {

/// A file, link or directory, or the place of one that is to be made.
struct Item {
  const FileDescriptor& directory;
  std::string name;
  std::string path;  ///< as it stands in messages
};

/// What tells a file from every other one on this machine.
struct Identity {
  dev_t device = 0;
  ino_t inode = 0;

  auto operator<=>(const Identity&) const =
      default;  // NOLINT(modernize-use-nullptr): the compiler's own text
};

inline Identity identityOf(const struct stat& status) {
  return {status.st_dev, status.st_ino};
}

/// The status of the item itself, never of what a link leads to. Throws `SystemError`.
struct stat statusOf(const Item& item);

/// The status of an open file; `path` names it. Throws `SystemError`.
struct stat statusOf(const FileDescriptor& file, const std::string& path);

/// Opens the item itself, never what a link leads to. Throws `SystemError`.
FileDescriptor openItem(const Item& item, int flags);

/// Throws `Error` when the item, `before` being its status when its copy was begun, has changed since then.
void requireUnchanged(const FileDescriptor& file, const struct stat& before, const std::string& path);

}  // namespace platform::ditto
