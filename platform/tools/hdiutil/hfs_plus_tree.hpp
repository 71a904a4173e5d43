#pragma once

#include "platform/foundation/file_descriptor.hpp"
#include "platform/tools/hdiutil/hfs_plus_volume.hpp"
#include "platform/tools/hdiutil/volume_tree.hpp"

namespace platform::hdiutil {

/// Writes the tree of an HFS Plus volume into the empty directory `tree`: names, permissions whatever the
/// process's mask, times of modification, links as they are stored, hard links, empty folders, and the
/// content of compressed files. Extended attributes and resource forks are left out. Everything is created
/// anew and links come last, so that nothing is ever written through one. `work` takes temporary files
/// without names. Throws `ImageError` for what cannot be written as it is; the tree is then incomplete.
VolumeTree writeHfsPlusTree(HfsPlusVolume& volume, const FileDescriptor& tree, const FileDescriptor& work);

}  // namespace platform::hdiutil
