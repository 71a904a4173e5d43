#include "platform/hdiutil/compressed_file.hpp"

#include <zlib.h>

#include <algorithm>
#include <utility>

#include "platform/hdiutil/disk.hpp"
#include "platform/hdiutil/image_error.hpp"

namespace platform::hdiutil {
namespace {

constexpr std::uint64_t kHeaderSize = 16;
constexpr std::uint64_t kBlockSize = 1U << 16U;
constexpr std::uint64_t kLargestInAttribute = 16U << 20U;
constexpr std::string_view kItem = "a compressed file in its volume";

enum Compression : std::uint32_t { kZlibInAttribute = 3, kZlibInFork = 4, kPlainInAttribute = 9 };

/// One block. A first byte of 0x?F, which no zlib stream has, marks content that did not get smaller.
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
  // The fork's one resource: its length, then the number of blocks and a table of their places behind that
  // length.
  const std::uint64_t table = std::uint64_t{ImageBytes(readFork(0, 4), kItem).u32(0)} + 4;
  const std::uint64_t count = ImageBytes(readFork(table, 4), kItem, ByteOrder::little).u32(0);
  if (count != size_ / kBlockSize + (size_ % kBlockSize != 0 ? 1 : 0))
    attribute.refuse();
  for (std::uint64_t index = 0; index < count; ++index) {
    const std::string place = readFork(table + 4 + 8 * index, 8);
    ImageBytes reader(place, kItem, ByteOrder::little);
    const std::uint32_t offset = reader.readU32();
    const std::uint32_t length = reader.readU32();
    if (length > 2 * kBlockSize)
      attribute.refuse();
    consumer(unpackBlock(readFork(table + offset, length), std::min(kBlockSize, size_ - index * kBlockSize)));
  }
}

}  // namespace platform::hdiutil
