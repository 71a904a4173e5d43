#include "platform/hdiutil/compressed_file.hpp"

#include <zlib.h>

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "platform/hdiutil/disk.hpp"
#include "platform/hdiutil/image_error.hpp"

namespace platform::hdiutil {
namespace {

constexpr std::uint64_t kHeaderSize = 16;
constexpr std::uint64_t kBlockSize = 1U << 16U;
constexpr std::uint64_t kLargestInAttribute = 16U << 20U;
constexpr std::uint32_t kInlineRecord = 0x10;
constexpr std::uint64_t kInlineHeaderSize = 16;
constexpr std::string_view kItem = "a compressed file in its volume";

enum Compression : std::uint32_t { kZlibInAttribute = 3, kZlibInFork = 4, kPlainInAttribute = 9 };

/// Unpacks one block. A first byte of 0x?F, which no zlib stream has, marks a block that is not compressed.
std::string unpackBlock(std::string_view packed, std::uint64_t size) {
  const ImageBytes bytes(packed, kItem);
  if ((bytes.u8(0) & 0x0FU) == 0x0FU) {
    if (packed.size() - 1 != size)
      bytes.refuse();
    return std::string(packed.substr(1));
  }
  std::string content(size, '\0');
  uLongf length = size;
  if (::uncompress(reinterpret_cast<Bytef*>(content.data()), &length,
                   reinterpret_cast<const Bytef*>(packed.data()), packed.size()) != Z_OK ||
      length != size)
    bytes.refuse();
  return content;
}

bool isNamed(const ImageBytes& key, std::string_view name) {
  if (key.u16(10) != name.size())
    return false;
  for (std::size_t index = 0; index < name.size(); ++index) {
    if (key.u16(12 + 2 * index) != static_cast<std::uint8_t>(name[index]))
      return false;
  }
  return true;
}

}  // namespace

CompressedFile::CompressedFile(std::string attribute) : attribute_(std::move(attribute)) {
  const ImageBytes bytes(attribute_, kItem, ByteOrder::little);
  if (!bytes.startsWith(0, "fpmc"))
    bytes.refuse();
  const std::uint32_t compression = bytes.u32(4);
  size_ = bytes.u64(8);
  usesResourceFork_ = compression == kZlibInFork;
  isPlain_ = compression == kPlainInAttribute;
  if (compression != kZlibInAttribute && !usesResourceFork_ && !isPlain_)
    throw UnsupportedImageError("the compression of a file in its volume (kind " +
                                std::to_string(compression) + ")");
}

void CompressedFile::unpack(const StoredFork& resourceFork,
                            const std::function<void(std::string_view)>& consumer) const {
  const ImageBytes attribute(attribute_, kItem);
  if (!usesResourceFork_) {
    const std::string_view packed = attribute.bytesFrom(kHeaderSize);
    if (size_ > kLargestInAttribute)
      attribute.refuse();
    if (isPlain_ && packed.size() != size_ + 1)
      attribute.refuse();
    if (size_ > 0)
      consumer(isPlain_ ? std::string(packed.substr(1)) : unpackBlock(packed, size_));
    return;
  }
  const auto readFork = [&](std::uint64_t offset, std::uint64_t length) {
    if (!ByteRange{offset, length}.within(resourceFork.size))
      attribute.refuse();
    std::string bytes(length, '\0');
    readAt(resourceFork.file, resourceFork.offset + offset, bytes);
    return bytes;
  };
  // The fork's one resource: its length, the number of blocks, and a table of their lengths and offsets,
  // which count from the end of the first field.
  const std::uint64_t table = std::uint64_t{ImageBytes(readFork(0, 4), kItem).u32(0)} + 4;
  const std::uint64_t count = ImageBytes(readFork(table, 4), kItem, ByteOrder::little).u32(0);
  if (count != size_ / kBlockSize + (size_ % kBlockSize != 0 ? 1 : 0))
    attribute.refuse();
  for (std::uint64_t index = 0; index < count; ++index) {
    const std::string row = readFork(table + 4 + 8 * index, 8);
    ImageBytes reader(row, kItem, ByteOrder::little);
    const std::uint32_t offset = reader.readU32();
    const std::uint32_t length = reader.readU32();
    if (length > 2 * kBlockSize)
      attribute.refuse();
    consumer(unpackBlock(readFork(table + offset, length), std::min(kBlockSize, size_ - index * kBlockSize)));
  }
}

CompressedFiles readCompressedFiles(HfsPlusVolume& volume, const std::vector<HfsEntry>& entries) {
  std::unordered_set<std::uint32_t> wanted;
  for (const HfsEntry& entry : entries) {
    if (entry.isCompressed)
      wanted.insert(entry.identifier);
  }
  CompressedFiles files;
  if (wanted.empty())
    return files;
  volume.readAttributes([&](const ImageBytes& key, const ImageBytes& data) {
    const std::uint32_t file = key.u32(2);
    if (!wanted.contains(file) || !isNamed(key, "com.apple.decmpfs"))
      return;
    if (data.u32(0) != kInlineRecord)
      throw UnsupportedImageError("the compression of a file in its volume (in an attribute of its own)");
    const std::string_view content = data.bytes(kInlineHeaderSize, data.u32(12));
    files.emplace(file, CompressedFile(std::string(content)));
  });
  return files;
}

}  // namespace platform::hdiutil
