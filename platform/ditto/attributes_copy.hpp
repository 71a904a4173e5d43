#pragma once

#include <sys/stat.h>

#include <string>

#include "platform/files/directory.hpp"

namespace platform::ditto {

/// Throws `Error` when the size or modification time of an open file or directory differs from `before`, its
/// status when the copy was started.
void requireUnchanged(const FileDescriptor& file, const struct stat& before, const std::string& path);

/// Gives an open copy everything but the content of an open file or directory; `status` is that of the source
/// before its content was read.
///  - Owner and group: as far as the caller is permitted to set them, otherwise the caller's own.
///  - Mode: exactly, but set-user-ID and set-group-ID only if the owner or group is the same.
///  - Extended attributes and access control lists: where both file systems support them; those that only an
///    administrator may set, where the caller may. An access control list that the copy inherited from its
///    parent directory is removed.
///  - Access and modification time.
/// Throws `SystemError` naming the copy, or the source when reading failed.
void copyAttributes(const FileDescriptor& source, const std::string& sourcePath, const struct stat& status,
                    const FileDescriptor& copy, const std::string& copyPath);

/// Gives the copy of a symbolic link the owner, group and times of the source. Throws `SystemError`.
void copyLinkAttributes(const struct stat& status, const Entry& copy);

}  // namespace platform::ditto
