#pragma once

#include <string_view>

#include "platform/files/file_descriptor.hpp"

namespace platform {

/// What was written through `file` is on stable storage afterwards. Throws `SystemError` naming `item`.
void syncFile(const FileDescriptor& file, std::string_view item);

/// The names in `directory` are on stable storage afterwards, as far as its file system offers that.
void syncDirectory(const FileDescriptor& directory, std::string_view item);

/// Everything on the file system that holds `item` is on stable storage afterwards.
void syncFileSystem(const FileDescriptor& anyFileOnIt, std::string_view item);

}  // namespace platform
