#pragma once

#include <string>

#include "platform/files/file_descriptor.hpp"
#include "platform/files/url.hpp"

namespace platform {

/// Where an item lies: its name in an open directory. The item itself may or may not exist.
struct ItemPlace {
  FileDescriptor directory;
  std::string name;  ///< one plain component, never "." or ".."
};

/// Opens the directory that holds the item of `url`, whose path is brought into standard form for that: the
/// parent of "X/." is the parent of X. Throws `SystemError`, also for the root, which lies in no directory.
ItemPlace placeOf(const URL& url);

}  // namespace platform
