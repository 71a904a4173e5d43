#pragma once

#include <string>

#include "platform/files/file_descriptor.hpp"

namespace platform {

/// A name in an open directory.
struct DirectoryEntryName {
  const FileDescriptor& directory;
  std::string name;
};

/// Renames unless something has the new name already. Returns 0, or the error number with nothing changed.
int renameExclusively(const DirectoryEntryName& from, const DirectoryEntryName& to);

/// Exchanges two names in one step. Returns 0, or the error number with nothing changed; `ENOTSUP` where the
/// file system has no such step.
int exchangeNames(const DirectoryEntryName& one, const DirectoryEntryName& other);

}  // namespace platform
