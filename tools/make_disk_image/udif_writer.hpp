#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "platform/files/file_descriptor.hpp"
#include "platform/formats/property_list.hpp"
#include "platform/hdiutil/disk.hpp"

namespace make_disk_image {

/// How blocks are stored: the type of their runs and the encoder.
struct BlockEncoding {
  std::uint32_t runType;
  std::function<std::string(std::span<const char>)> encode;
};

/// zlib streams (RFC 1950).
BlockEncoding zlibEncoding();

/// The content of a block table: `length` bytes of `source` from `offset` on, at `firstSector` of the disk.
/// `length` is a multiple of 512.
struct TableContent {
  std::string name;
  platform::hdiutil::Disk& source;
  std::uint64_t offset;
  std::uint64_t length;
  std::uint64_t firstSector;
};

/// Writes a disk image in the universal format: stored blocks, a property list with the block tables, and a
/// trailer, with checksums. Throws `SystemError` when writing fails.
class UdifWriter {
 public:
  /// `output` is empty and outlives the writer.
  explicit UdifWriter(const platform::FileDescriptor& output) : output_(output) {}

  /// Adds a part of the disk. Parts are added in disk order.
  void addTable(const TableContent& content, const BlockEncoding& encoding);

  /// Writes the block tables and the trailer, which complete the image.
  void finish();

 private:
  void append(std::string_view bytes);

  const platform::FileDescriptor& output_;
  std::uint64_t written_ = 0;
  std::uint32_t dataChecksum_ = 0;
  std::uint32_t masterChecksum_ = 0;
  std::uint64_t sectorCount_ = 0;
  platform::PropertyList::Array tables_;
};

}  // namespace make_disk_image
