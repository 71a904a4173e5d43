#pragma once

#include "platform/files/directory.hpp"

namespace platform {

// The calls on files in which systems differ, one attempt each, without a policy.

enum class RenameMode { replacing, exclusive, exchanging };

/// Returns 0 or the error number. For a mode that the system or the file system does not support, that is
/// `ENOTSUP`, `ENOSYS` or `EINVAL`.
int renameOnce(const Entry& from, const Entry& to, RenameMode mode) noexcept;

/// Opens the item itself, even if it is a link, with no more rights than the system requires to identify it.
/// Throws `SystemError`.
FileDescriptor openItself(const Entry& entry);

/// Whether `unlink` failed with `errorNumber` because the item is a directory.
bool isRefusedAsDirectory(const FileDescriptor& directory, const std::string& name, int errorNumber) noexcept;

/// Advises the system that the pages of a file are no longer needed.
void dropFromCache(const FileDescriptor& file) noexcept;

}  // namespace platform
