#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/hdiutil/disk.hpp"
#include "platform/hdiutil/image_registry.hpp"
#include "platform/hdiutil/partition_map.hpp"
#include "platform/hdiutil/volume_tree.hpp"

namespace platform::hdiutil {

enum class FileSystem : std::uint8_t { hfsPlus, apfs, fat };

/// The file system whose volume starts at `offset`; nothing when it is none that can be read.
std::optional<FileSystem> fileSystemAt(Disk& disk, std::uint64_t offset);

/// The name of a known file system that cannot be read, when a volume of it starts at `offset`.
std::optional<std::string> unsupportedFileSystemAt(Disk& disk, std::uint64_t offset);

/// The name that the platform has for its volumes.
const char* volumeKind(FileSystem fileSystem);

/// Writes the trees of the volumes in `partition`, of which an APFS container may have several, into new
/// trees of `attachment`. Nothing of them is left after a failure.
std::vector<VolumeTree> writeTrees(Disk& disk, const Partition& partition, FileSystem fileSystem,
                                   ImageRegistry::Attachment& attachment);

}  // namespace platform::hdiutil
