#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "platform/files/file_descriptor.hpp"
#include "platform/formats/property_list.hpp"
#include "platform/hdiutil/disk.hpp"

namespace quorin_tools {

/// How blocks are stored: the number that the format has for it, and what turns a block into its stored form.
struct BlockEncoding {
  std::uint32_t runType;
  std::function<std::string(std::span<const char>)> encode;
};

/// zlib streams (RFC 1950).
BlockEncoding zlibEncoding();

/// What a block table covers: `length` bytes of `source` from `offset` on, which come to stand at
/// `firstSector` of the disk. A length is a multiple of 512.
struct TableContent {
  std::string name;
  platform::hdiutil::Disk& source;
  std::uint64_t offset;
  std::uint64_t length;
  std::uint64_t firstSector;
};

/// Writes a disk image in the universal format: the stored blocks, a property list with the block tables, a
/// trailer, each with its checksum. Failures to write are thrown as `SystemError`.
class UdifWriter {
 public:
  /// `output` is empty, and outlives the writer.
  explicit UdifWriter(const platform::FileDescriptor& output) : output_(output) {}

  /// Adds a part of the disk. Parts come in the order of the disk.
  void addTable(const TableContent& content, const BlockEncoding& encoding);

  /// Writes what stands behind the blocks. Without it there is no image.
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

}  // namespace quorin_tools
