#pragma once

#include <string>

#include "platform/files/directory.hpp"
#include "platform/hdiutil/hfs_plus_volume.hpp"

namespace platform::hdiutil {

/// Writes the tree of an HFS Plus volume into the empty directory `tree`: names, permissions independent of
/// the umask, modification times, symbolic links as they are stored, hard links, and the content of files,
/// unpacked where it is compressed. Extended attributes and resource forks are left out. Nothing is ever
/// written through a link: every entry is created, and content is written outside of the tree. `work` is a
/// directory on the same file system for temporary files, which are removed. Returns the volume's name.
/// Throws `ImageError` for entries that cannot be represented; the tree is then incomplete.
std::string writeHfsPlusTree(HfsPlusVolume& volume, const Directory& tree, const Directory& work);

}  // namespace platform::hdiutil
