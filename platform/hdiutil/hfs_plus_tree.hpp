#pragma once

#include <string>

#include "platform/files/directory.hpp"
#include "platform/hdiutil/hfs_plus_volume.hpp"

namespace platform::hdiutil {

/// Writes the tree of an HFS Plus volume into the empty directory `tree`: names, permissions whatever the
/// process's mask, times of modification, links as they are stored, hard links, empty folders, and the
/// content of compressed files. Extended attributes and resource forks are left out. Everything is created
/// anew, and content is written outside of the tree, so that nothing is ever written through a link. `work`
/// is on the same file system and takes temporary files. Returns the volume's name. Throws `ImageError` for
/// what cannot be written as it is; the tree is then incomplete.
std::string writeHfsPlusTree(HfsPlusVolume& volume, const Directory& tree, const Directory& work);

}  // namespace platform::hdiutil
