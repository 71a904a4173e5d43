#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/files/file_descriptor.hpp"

namespace platform::hdiutil {

/// A stretch of a disk that is stored in one way.
struct UdifRun {
  std::uint64_t length;  ///< in bytes of the disk
  bool isStored;         ///< otherwise the image holds nothing for it, and it reads as zeros
  bool isInChecksum;     ///< of its block table
};

/// One partition of the disk, or all of it: a block table of the image.
struct UdifTable {
  std::string name;
  std::uint64_t offset;                   ///< on the disk, in bytes
  std::uint64_t length;                   ///< in bytes
  std::optional<std::uint32_t> checksum;  ///< CRC-32 of its runs' content
  std::vector<UdifRun> runs;              ///< in the order of the disk, without gaps
};

/// What a disk image in the universal format says of itself: a trailer of 512 bytes at the end of the file
/// ("koly"), a property list, and in it the block tables ("mish"), all numbers big-endian.
struct UdifImage {
  std::vector<UdifTable> tables;  ///< in the order of the disk; none overlaps another
  std::uint64_t diskSize = 0;     ///< in bytes
  std::uint64_t dataOffset = 0;   ///< where the stored runs lie in the image
  std::uint64_t dataLength = 0;
  std::optional<std::uint32_t> dataChecksum;  ///< CRC-32 of them as they are stored
};

/// Reads and checks the description; nothing when the file has no such trailer. Throws `ImageError` for a
/// trailer or table that contradicts itself or the file, or that does not match its checksum.
std::optional<UdifImage> readUdif(const FileDescriptor& image);

}  // namespace platform::hdiutil
