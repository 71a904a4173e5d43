#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/tools/hdiutil/disk.hpp"

namespace platform::hdiutil {

/// A part of a disk that may hold a volume.
struct Partition {
  std::string type;  ///< the name or identifier that its map gives for its kind
  std::uint64_t offset;
  std::uint64_t length;
};

/// The partitions of a disk in the order of its map: a partition map of the Apple kind, a GUID partition
/// table (UEFI, chapter 5) or a master boot record. Empty when the disk has none of them.
/// Partitions that reach beyond the disk are an `ImageError`.
std::vector<Partition> readPartitionMap(Disk& disk);

}  // namespace platform::hdiutil
