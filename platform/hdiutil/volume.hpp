#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/hdiutil/disk.hpp"
#include "platform/hdiutil/image_registry.hpp"
#include "platform/hdiutil/partition_map.hpp"
#include "platform/hdiutil/tree_writer.hpp"

namespace platform::hdiutil {

enum class FileSystem : std::uint8_t { hfsPlus, apfs, fat };

/// The file system whose volume starts at `offset`; nothing when it is not one that can be read.
std::optional<FileSystem> fileSystemAt(Disk& disk, std::uint64_t offset);

/// The name of the known, but unsupported file system whose volume starts at `offset`.
std::optional<std::string> unsupportedFileSystemAt(Disk& disk, std::uint64_t offset);

/// The "volume-kind" of its volumes in the property list.
const char* volumeKind(FileSystem fileSystem);

/// Writes the volumes in `partition`, of which an APFS container may have several, into a new tree of
/// `attachment`, which is removed after a failure. Throws `ImageError` and `SystemError`.
std::vector<VolumeTree> writeTrees(Disk& disk, const Partition& partition, FileSystem fileSystem,
                                   ImageRegistry::Attachment& attachment);

}  // namespace platform::hdiutil
