#include "platform/hdiutil/hfs_plus_volume.hpp"

#include <algorithm>

#include "platform/hdiutil/image_error.hpp"

namespace platform::hdiutil {
namespace {

constexpr std::uint64_t kHeaderOffset = 1024;
constexpr std::uint64_t kHeaderSize = 512;
constexpr std::uint64_t kLargestTree = 512U << 20U;
constexpr std::uint64_t kForkSize = 80;
constexpr std::size_t kMostPieces = 4'000'000;
constexpr std::uint8_t kLeafNode = 0xFF;
constexpr std::uint8_t kHeaderNode = 1;
constexpr std::uint64_t kNodeDescriptorSize = 14;
constexpr std::uint32_t kUnmounted = 1U << 8U;
constexpr std::uint32_t kInconsistent = 1U << 11U;
constexpr std::uint32_t kJournaled = 1U << 13U;

enum HfsIdentifier : std::uint32_t { kOverflowFile = 3, kCatalogFile = 4, kAttributesFile = 8 };

constexpr std::string_view kHeaderItem = "its volume's header";
constexpr std::string_view kTreeItem = "its volume's catalog";

std::array<HfsFork::Extent, 8> readExtents(const ImageBytes& bytes, std::uint64_t offset) {
  std::array<HfsFork::Extent, 8> extents{};
  for (HfsFork::Extent& extent : extents) {
    extent = {bytes.u32(offset), bytes.u32(offset + 4)};
    offset += 8;
  }
  return extents;
}

}  // namespace

HfsFork readHfsFork(const ImageBytes& bytes) {
  return {bytes.u64(0), readExtents(bytes, 16)};
}

bool HfsPlusVolume::isAt(Disk& disk, std::uint64_t offset) {
  if (!ByteRange{offset, kHeaderOffset + kHeaderSize}.within(disk.size()))
    return false;
  const std::string signature = disk.read(offset + kHeaderOffset, 4);
  return signature == std::string_view("H+\0\x04", 4) || signature == std::string_view("HX\0\x05", 4);
}

HfsPlusVolume::HfsPlusVolume(Disk& disk, std::uint64_t offset, std::uint64_t length)
    : disk_(disk), offset_(offset), length_(length) {
  const std::string bytes = disk.read(offset + kHeaderOffset, kHeaderSize);
  const ImageBytes header(bytes, kHeaderItem);
  const std::uint32_t attributes = header.u32(4);
  // Changes that are only in the journal would be missing.
  if ((attributes & kInconsistent) != 0 || ((attributes & kJournaled) != 0 && (attributes & kUnmounted) == 0))
    throw UnsupportedImageError("its volume, which was not ejected before the image was made,");
  blockSize_ = header.u32(40);
  blockCount_ = header.u32(44);
  if (blockSize_ < 512 || (blockSize_ & (blockSize_ - 1)) != 0 || blockCount_ > length_ / blockSize_)
    header.refuse();
  overflow_ = readHfsFork(header.part(192, kForkSize));
  catalog_ = readHfsFork(header.part(272, kForkSize));
  attributes_ = readHfsFork(header.part(352, kForkSize));
  readOverflow();
}

void HfsPlusVolume::readCatalog(const RecordReader& reader) {
  readTree(content(catalog_, kCatalogFile), reader);
}

void HfsPlusVolume::readAttributes(const RecordReader& reader) {
  if (attributes_.size > 0)
    readTree(content(attributes_, kAttributesFile), reader);
}

void HfsPlusVolume::readOverflow() {
  if (overflow_.size == 0)
    return;
  readTree(content(overflow_, kOverflowFile), [this](const ImageBytes& key, const ImageBytes& data) {
    const std::uint8_t kind = key.u8(0);
    if (kind != static_cast<std::uint8_t>(HfsForkKind::data) &&
        kind != static_cast<std::uint8_t>(HfsForkKind::resource))
      key.refuse();
    overflowExtents_.emplace(OverflowKey{key.u32(2), HfsForkKind{kind}, key.u32(6)}, readExtents(data, 0));
  });
}

std::vector<HfsPiece> HfsPlusVolume::pieces(const HfsFork& fork, std::uint32_t fileIdentifier,
                                            HfsForkKind kind) const {
  std::vector<HfsPiece> result;
  std::uint64_t left = fork.size;
  std::uint32_t block = 0;
  const std::array<HfsFork::Extent, 8>* extents = &fork.extents;
  while (left > 0) {
    for (const HfsFork::Extent& extent : *extents) {
      if (left == 0 || extent.count == 0)
        break;
      if (!ByteRange{extent.start, extent.count}.within(blockCount_))
        throw ImageError("its volume is damaged: a file extends beyond its end");
      const std::uint64_t length = std::min(left, std::uint64_t{extent.count} * blockSize_);
      if (result.size() == kMostPieces)
        throw ImageLimitError("a file in its volume is in more than " + std::to_string(kMostPieces) +
                              " pieces");
      result.push_back({offset_ + std::uint64_t{extent.start} * blockSize_, length});
      left -= length;
      block += extent.count;
    }
    if (left == 0)
      break;
    const auto more = overflowExtents_.find({fileIdentifier, kind, block});
    if (more == overflowExtents_.end() || more->second[0].count == 0)
      throw ImageError("its volume is damaged: a part of a file is missing");
    extents = &more->second;
  }
  return result;
}

std::string HfsPlusVolume::content(const HfsFork& fork, std::uint32_t fileIdentifier) const {
  if (fork.size > kLargestTree)
    throw ImageLimitError("the catalog of its volume is larger than " + std::to_string(kLargestTree) +
                          " bytes");
  if (fork.size > length_)
    throw ImageError::damaged(kTreeItem);
  std::string bytes(fork.size, '\0');
  std::uint64_t done = 0;
  for (const HfsPiece& piece : pieces(fork, fileIdentifier, HfsForkKind::data)) {
    disk_.read(piece.offset, std::span(bytes).subspan(done, piece.length));
    done += piece.length;
  }
  return bytes;
}

void HfsPlusVolume::readTree(const std::string& bytes, const RecordReader& reader) const {
  const ImageBytes tree(bytes, kTreeItem);
  const std::uint64_t nodeSize = tree.u16(kNodeDescriptorSize + 18);
  const std::uint32_t nodeCount = tree.u32(kNodeDescriptorSize + 22);
  if (tree.u8(8) != kHeaderNode || nodeSize < 512 || (nodeSize & (nodeSize - 1)) != 0 ||
      nodeCount > tree.size() / nodeSize)
    tree.refuse();
  std::uint32_t recordsLeft = tree.u32(kNodeDescriptorSize + 6);
  std::uint32_t nodesLeft = nodeCount;
  for (std::uint32_t number = tree.u32(kNodeDescriptorSize + 10); number != 0;) {
    if (number >= nodeCount || nodesLeft-- == 0)
      tree.refuse();
    const ImageBytes node = tree.part(number * nodeSize, nodeSize);
    const std::uint16_t count = node.u16(10);
    if (node.u8(8) != kLeafNode || count > recordsLeft || std::uint64_t{count} * 2 + 2 > nodeSize)
      node.refuse();
    recordsLeft -= count;
    for (std::uint64_t index = 0; index < count; ++index) {
      const std::uint64_t begin = node.u16(nodeSize - 2 * (index + 1));
      const std::uint64_t end = node.u16(nodeSize - 2 * (index + 2));
      if (begin < kNodeDescriptorSize || end < begin)
        node.refuse();
      const ImageBytes record = node.part(begin, end - begin);
      const std::uint64_t keyLength = record.u16(0);
      // Data starts at an even offset.
      const std::uint64_t dataBegin = (keyLength + 3) / 2 * 2;
      if (dataBegin > record.size())
        record.refuse();
      reader(record.part(2, keyLength), record.part(dataBegin, record.size() - dataBegin));
    }
    number = node.u32(0);
  }
  if (recordsLeft != 0)
    tree.refuse();
}

}  // namespace platform::hdiutil
