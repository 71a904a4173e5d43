#pragma once

#include <sys/stat.h>

#include <string>

#include "platform/files/directory.hpp"

namespace platform::ditto {

/// Throws `Error` when the file or directory, `before` being its status when its copy was begun, has changed
/// since then.
void requireUnchanged(const FileDescriptor& file, const struct stat& before, const std::string& path);

/// Gives an open copy what belongs to the file or directory besides its content; `status` is the source's
/// from before its content was read. Owner and group follow where the system permits it, otherwise the copy
/// is the caller's own. The mode follows exactly, except that a set-user-ID or set-group-ID bit stays only
/// together with its user or group. Extended attributes and access control lists follow where both file
/// systems have them, those that only an administrator may set where the caller may; the copy keeps no access
/// control list that its parent directory gave it. Access and modification time come last. Throws
/// `SystemError` naming the copy, or the source where reading failed.
void copyAttributes(const FileDescriptor& source, const std::string& sourcePath, const struct stat& status,
                    const FileDescriptor& copy, const std::string& copyPath);

/// Gives a copied link the owner, group and times of the source. Throws `SystemError`.
void copyLinkAttributes(const struct stat& status, const Entry& copy);

}  // namespace platform::ditto
