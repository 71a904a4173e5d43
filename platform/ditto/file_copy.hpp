#pragma once

#include <sys/stat.h>

#include <string>

#include "platform/files/directory.hpp"

namespace platform::ditto {

/// Creates `copy`, which must not exist, as a copy of the regular file `source` with its content, its holes
/// and all its attributes. Throws `Error`, also when the source is seen to change; the incomplete copy is not
/// removed. Safe to call from several threads for different copies.
void copyFile(const Entry& source, const Entry& copy);

/// The same for a file or symbolic link with the given status. Throws `Error` for anything else.
void copyFileOrLink(const Entry& source, const struct stat& status, const Entry& copy);

/// Copies the content of an open file, whose status is `status`, to an open, empty file. Shares the blocks
/// where the file system can; otherwise copies in the kernel, or through a buffer where the kernel cannot.
/// Holes are preserved. Throws `SystemError` naming the file that failed, and `Error` when the source ends
/// before its size.
void copyContent(const FileDescriptor& source, const std::string& sourcePath, const struct stat& status,
                 const FileDescriptor& copy, const std::string& copyPath);

}  // namespace platform::ditto
