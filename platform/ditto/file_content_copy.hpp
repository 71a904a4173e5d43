#pragma once

#include <sys/stat.h>

#include <string>

#include "platform/files/file_descriptor.hpp"

namespace platform::ditto {

/// Copies the content of an open file into an open, new and empty one; `status` is the source's. Where the
/// file system can, both share their blocks; otherwise the kernel copies, and where it cannot, this process
/// does. Holes stay holes. Throws `SystemError` naming the file that failed, `Error` when the source ends
/// before its size.
void copyContent(const FileDescriptor& source, const std::string& sourcePath, const struct stat& status,
                 const FileDescriptor& copy, const std::string& copyPath);

}  // namespace platform::ditto
