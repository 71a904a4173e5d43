#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/hdiutil/disk.hpp"

namespace platform::hdiutil {

/// A part of a disk that may contain a volume.
struct Partition {
  std::string type;      ///< a name such as "Apple_HFS" or "EFI", or the type as in the map if it has no name
  std::uint64_t offset;  ///< in bytes, like the length
  std::uint64_t length;
};

/// The partitions of a disk in the order of its map: an Apple partition map, a GUID partition table (UEFI,
/// chapter 5) or a master boot record. Empty when the disk has none of them. Throws `ImageError` when the map
/// is damaged or a partition extends beyond the disk.
std::vector<Partition> readPartitionMap(Disk& disk);

/// False for the types of partitions that the system reserves for itself.
bool isMounted(const std::string& type);

}  // namespace platform::hdiutil
