#include "tools/make_disk_image/udif_writer.hpp"

#include <zlib.h>

#include <algorithm>

#include "platform/foundation/error.hpp"
#include "tools/byte_writer.hpp"

namespace make_disk_image {
namespace {

using platform::PropertyList;
using tools::ByteWriter;

constexpr std::uint64_t kSector = 512;
constexpr std::uint64_t kBlockSize = 1U << 20U;
constexpr std::uint32_t kIgnoredRun = 2;
constexpr std::uint32_t kZlibRun = 0x80000005;
constexpr std::uint32_t kTerminator = 0xFFFFFFFF;
constexpr std::uint32_t kChecksumCrc32 = 2;
constexpr int kCompressionLevel = 6;

std::uint32_t crc(std::uint32_t checksum, std::string_view bytes) {
  return static_cast<std::uint32_t>(
      ::crc32(checksum, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())));
}

/// Type, size in bits and 128 bytes of value.
std::string checksumField(std::uint32_t value) {
  return ByteWriter().u32(kChecksumCrc32).u32(32).u32(value).zeros(124).bytes();
}

}  // namespace

BlockEncoding zlibEncoding() {
  return {kZlibRun, [](std::span<const char> block) {
            uLongf length = ::compressBound(block.size());
            std::string stored(length, '\0');
            if (::compress2(reinterpret_cast<Bytef*>(stored.data()), &length,
                            reinterpret_cast<const Bytef*>(block.data()), block.size(),
                            kCompressionLevel) != Z_OK)
              throw platform::Error("A block could not be compressed.");
            stored.resize(length);
            return stored;
          }};
}

void UdifWriter::addTable(const TableContent& content, const BlockEncoding& encoding) {
  ByteWriter runs;
  std::uint32_t runCount = 0;
  std::uint32_t checksum = 0;
  std::vector<char> buffer(kBlockSize);
  for (std::uint64_t done = 0; done < content.length; ++runCount) {
    const auto block = std::span(buffer).first(std::min(kBlockSize, content.length - done));
    content.source.take(content.offset + done, block);
    const bool isZero = std::all_of(block.begin(), block.end(), [](char byte) { return byte == 0; });
    // The checksum covers stored blocks only.
    if (!isZero)
      checksum = crc(checksum, {block.data(), block.size()});
    const std::string stored = isZero ? std::string() : encoding.encode(block);
    runs.u32(isZero ? kIgnoredRun : encoding.runType).u32(0).u64(done / kSector);
    runs.u64(block.size() / kSector).u64(written_).u64(stored.size());
    append(stored);
    dataChecksum_ = crc(dataChecksum_, stored);
    done += block.size();
  }
  runs.u32(kTerminator).u32(0).u64(content.length / kSector).u64(0).u64(written_).u64(0);

  ByteWriter table;
  table.raw("mish").u32(1).u64(content.firstSector).u64(content.length / kSector).u64(0);
  table.u32(kBlockSize / kSector + 8).u32(static_cast<std::uint32_t>(tables_.size())).zeros(24);
  table.raw(checksumField(checksum)).u32(runCount + 1).raw(runs.bytes());
  masterChecksum_ = crc(masterChecksum_, ByteWriter().u32(checksum).bytes());
  sectorCount_ = content.firstSector + content.length / kSector;

  PropertyList::Dictionary entry;
  entry.emplace("Attributes", "0x0050");
  entry.emplace("CFName", content.name);
  entry.emplace("Data", PropertyList(platform::Data(table.bytes())));
  entry.emplace("ID", std::to_string(tables_.size()));
  entry.emplace("Name", content.name);
  tables_.emplace_back(std::move(entry));
}

void UdifWriter::finish() {
  const std::uint64_t dataLength = written_;
  PropertyList::Dictionary resources;
  resources.emplace("blkx", PropertyList(tables_));
  PropertyList::Dictionary root;
  root.emplace("resource-fork", PropertyList(std::move(resources)));
  const platform::Data list =
      platform::NSPropertyListSerialization::dataWithPropertyList(PropertyList(std::move(root)));
  append(list.bytes());

  constexpr std::uint32_t kVersion = 4;
  constexpr std::uint32_t kTrailerSize = 512;
  constexpr std::uint32_t kFlattened = 1;
  constexpr std::uint32_t kPartitionImage = 2;
  ByteWriter trailer;
  trailer.raw("koly").u32(kVersion).u32(kTrailerSize).u32(kFlattened);
  trailer.u64(0)
      .u64(0)
      .u64(dataLength)
      .u64(0)
      .u64(0)
      .u32(1)
      .u32(1)
      .zeros(16)
      .raw(checksumField(dataChecksum_));
  trailer.u64(dataLength).u64(list.size()).zeros(120).raw(checksumField(masterChecksum_));
  trailer.u32(kPartitionImage).u64(sectorCount_).zeros(12);
  append(trailer.bytes());
}

void UdifWriter::append(std::string_view bytes) {
  output_.writeAll(bytes, "the disk image");
  written_ += bytes.size();
}

}  // namespace make_disk_image
