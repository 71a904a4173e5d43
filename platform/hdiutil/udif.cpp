#include "platform/hdiutil/udif.hpp"

#include <zlib.h>

#include <span>

#include "platform/formats/property_list.hpp"
#include "platform/hdiutil/disk.hpp"
#include "platform/hdiutil/image_error.hpp"

namespace platform::hdiutil {
namespace {

constexpr std::uint64_t kTrailerSize = 512;
constexpr std::uint64_t kSectorSize = 512;
constexpr std::uint64_t kMostSectors = std::uint64_t{1} << 40U;
constexpr std::uint64_t kMostUnstored = std::uint64_t{64} << 30U;
constexpr std::uint64_t kLongestList = 64U << 20U;
constexpr std::uint64_t kTableHeaderSize = 204;
constexpr std::uint64_t kRunSize = 40;
constexpr std::uint32_t kChecksumCrc32 = 2;

enum RunType : std::uint32_t {
  kZeroFill = 0,
  kRaw = 1,
  kIgnored = 2,
  kAdc = 0x80000004,
  kZlib = 0x80000005,
  kBzip2 = 0x80000006,
  kLzfse = 0x80000007,
  kLzma = 0x80000008,
  kComment = 0x7FFFFFFE,
  kTerminator = 0xFFFFFFFF,
};

bool isStored(std::uint32_t type) {
  return type == kRaw || (type >= kAdc && type <= kLzma);
}

/// Reads a checksum: its type, its size in bits and its first word. All are zero when there is none.
std::optional<std::uint32_t> checksumAt(const ImageBytes& bytes, std::uint64_t offset) {
  const std::uint32_t type = bytes.u32(offset);
  const std::uint32_t size = bytes.u32(offset + 4);
  if (type == 0 && size == 0)
    return std::nullopt;
  if (type != kChecksumCrc32 || size != 32)
    throw UnsupportedImageError("its kind of checksum (" + std::to_string(type) + ")");
  return bytes.u32(offset + 8);
}

struct Trailer {
  UdifImage image;
  std::uint64_t listOffset;
  std::uint64_t listLength;
  std::uint64_t sectorCount;
  std::optional<std::uint32_t> masterChecksum;
};

Trailer readTrailer(const ImageBytes& bytes, std::uint64_t bytesBefore) {
  Trailer trailer{};
  if (bytes.u32(8) != kTrailerSize)
    bytes.refuse();
  if (bytes.u32(4) != 4)
    throw UnsupportedImageError("version " + std::to_string(bytes.u32(4)) + " of its format");
  if (bytes.u32(60) > 1)
    throw UnsupportedImageError("an image of several segments");
  trailer.image.dataOffset = bytes.u64(24);
  trailer.image.dataLength = bytes.u64(32);
  trailer.image.dataChecksum = checksumAt(bytes, 80);
  trailer.listOffset = bytes.u64(216);
  trailer.listLength = bytes.u64(224);
  trailer.masterChecksum = checksumAt(bytes, 352);
  trailer.sectorCount = bytes.u64(492);
  if (!ByteRange{trailer.image.dataOffset, trailer.image.dataLength}.within(bytesBefore) ||
      !ByteRange{trailer.listOffset, trailer.listLength}.within(bytesBefore) ||
      trailer.sectorCount > kMostSectors)
    throw ImageError("it is truncated, or its trailer is damaged");
  if (trailer.listLength == 0 || trailer.listLength > kLongestList)
    bytes.refuse();
  return trailer;
}

UdifTable readTable(const std::string& name, const ImageBytes& bytes, const UdifImage& image) {
  const std::uint64_t firstSector = bytes.u64(8);
  const std::uint64_t sectorCount = bytes.u64(16);
  const std::uint32_t runCount = bytes.u32(200);
  if (!bytes.startsWith(0, "mish") || firstSector > kMostSectors || sectorCount > kMostSectors)
    bytes.refuse();
  UdifTable table{name, firstSector * kSectorSize, sectorCount * kSectorSize, checksumAt(bytes, 64), {}};
  std::uint64_t sector = 0;
  bool isTerminated = false;
  for (std::uint32_t index = 0; index < runCount && !isTerminated; ++index) {
    const ImageBytes run = bytes.part(kTableHeaderSize + kRunSize * index, kRunSize);
    const std::uint32_t type = run.u32(0);
    const std::uint64_t count = run.u64(16);
    const std::uint64_t position = run.u64(24);
    const std::uint64_t stored = run.u64(32);
    isTerminated = type == kTerminator;
    if (isTerminated || type == kComment)
      continue;
    if (type != kZeroFill && type != kIgnored && !isStored(type))
      throw UnsupportedImageError("its kind of block (" + std::to_string(type) + ")");
    if (run.u64(8) != sector || count > sectorCount - sector)
      bytes.refuse();
    if (isStored(type) && (!ByteRange{position, stored}.within(image.dataLength) ||
                           (type == kRaw && stored != count * kSectorSize)))
      bytes.refuse();
    sector += count;
    table.runs.push_back({count * kSectorSize, isStored(type), type != kIgnored});
  }
  if (sector != sectorCount)
    bytes.refuse();
  return table;
}

const PropertyList::Array& blockTables(const PropertyList& list) {
  const PropertyList* resources = list.valueForKey("resource-fork");
  const PropertyList* tables = resources == nullptr ? nullptr : resources->valueForKey("blkx");
  if (tables == nullptr || tables->array() == nullptr || tables->array()->empty())
    throw ImageError("it is damaged: it has no block table");
  return *tables->array();
}

PropertyList readList(const FileDescriptor& image, const Trailer& trailer) {
  std::string bytes(trailer.listLength, '\0');
  readAt(image, trailer.listOffset, bytes);
  try {
    return NSPropertyListSerialization::propertyListWithData(Data(std::move(bytes)));
  } catch (const PropertyListError&) {
    throw ImageError("its list of block tables is damaged");
  }
}

void addTable(UdifImage& image, const PropertyList& entry, std::uint32_t& master) {
  const PropertyList* data = entry.valueForKey("Data");
  if (data == nullptr || data->data() == nullptr)
    throw ImageError("its list of block tables is damaged");
  const ImageBytes bytes(data->data()->bytes(), "its block table");
  UdifTable table = readTable(entry.stringForKey("Name").value_or(std::string()), bytes, image);
  if (table.offset < image.diskSize)
    throw UnsupportedImageError("the order of its block tables, which is not that of the disk,");
  image.diskSize = table.offset + table.length;
  const std::string_view checksum = bytes.bytes(72, 4);
  master = static_cast<std::uint32_t>(
      ::crc32(master, reinterpret_cast<const Bytef*>(checksum.data()), static_cast<uInt>(checksum.size())));
  image.tables.push_back(std::move(table));
}

/// Limits the bytes that are not stored: they take no space in the image, but reading them takes time.
void requireEnd(const UdifImage& image) {
  std::uint64_t unstored = image.diskSize;
  for (const UdifTable& table : image.tables)
    for (const UdifRun& run : table.runs)
      unstored -= run.isStored ? run.length : 0;
  if (unstored > kMostUnstored)
    throw ImageLimitError(std::to_string(unstored) + " bytes of its disk are empty; at most " +
                          std::to_string(kMostUnstored) + " (64 GiB) are allowed");
}

}  // namespace

std::optional<UdifImage> readUdif(const FileDescriptor& image) {
  const std::uint64_t size = sizeOf(image);
  if (size < kTrailerSize)
    return std::nullopt;
  std::string trailerBytes(kTrailerSize, '\0');
  readAt(image, size - kTrailerSize, trailerBytes);
  const ImageBytes bytes(trailerBytes, "its trailer");
  if (!bytes.startsWith(0, "koly"))
    return std::nullopt;
  Trailer trailer = readTrailer(bytes, size - kTrailerSize);
  const PropertyList list = readList(image, trailer);
  std::uint32_t master = 0;
  for (const PropertyList& entry : blockTables(list))
    addTable(trailer.image, entry, master);
  if (trailer.masterChecksum && *trailer.masterChecksum != master)
    throw ImageError("it is damaged: its block tables do not match their checksum");
  if (trailer.sectorCount * kSectorSize < trailer.image.diskSize)
    bytes.refuse();
  requireEnd(trailer.image);
  return std::move(trailer.image);
}

}  // namespace platform::hdiutil
