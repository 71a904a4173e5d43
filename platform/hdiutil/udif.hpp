#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/files/file_descriptor.hpp"

namespace platform::hdiutil {

/// A contiguous part of a disk that is stored in one way.
struct UdifRun {
  std::uint64_t length;  ///< in bytes of the disk
  bool isStored;         ///< otherwise the image has no data for it, and it reads as zeros
  bool isInChecksum;     ///< covered by that of its block table
};

/// One partition of the disk, or all of it: a block table of the image.
struct UdifTable {
  std::string name;
  std::uint64_t offset;                   ///< on the disk, in bytes
  std::uint64_t length;                   ///< in bytes
  std::optional<std::uint32_t> checksum;  ///< CRC-32 of its runs' content
  std::vector<UdifRun> runs;              ///< in the order of the disk, without gaps
};

/// The layout of a disk image in the universal format: from a trailer of 512 bytes at the end of the file
/// ("koly") and the block tables ("mish") in a property list, all with big-endian numbers.
struct UdifImage {
  std::vector<UdifTable> tables;  ///< in the order of the disk; none overlaps another
  std::uint64_t diskSize = 0;     ///< in bytes
  std::uint64_t dataOffset = 0;   ///< of the stored runs in the image
  std::uint64_t dataLength = 0;
  std::optional<std::uint32_t> dataChecksum;  ///< CRC-32 of the runs as they are stored
};

/// Reads and checks the layout; nothing when the file has no such trailer. Throws `ImageError` for a trailer
/// or table that is inconsistent, contradicts the file, or does not match its checksum, and `SystemError`.
std::optional<UdifImage> readUdif(const FileDescriptor& image);

}  // namespace platform::hdiutil
