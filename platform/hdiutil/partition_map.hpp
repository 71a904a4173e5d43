#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/hdiutil/disk.hpp"

namespace platform::hdiutil {

/// A part of a disk that may hold a volume.
struct Partition {
  std::string type;  ///< the name of its kind, such as "Apple_HFS" and "EFI"; without one, what its map says
  std::uint64_t offset;
  std::uint64_t length;
};

/// The partitions of a disk in the order of its map: a partition map of the Apple kind, a GUID partition
/// table (UEFI, chapter 5) or a master boot record. Empty when the disk has none of them.
/// Partitions that reach beyond the disk are an `ImageError`.
std::vector<Partition> readPartitionMap(Disk& disk);

/// False for the types of partitions that the system keeps for itself.
bool isMounted(const std::string& type);

}  // namespace platform::hdiutil
