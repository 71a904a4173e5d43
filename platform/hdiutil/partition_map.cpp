#include "platform/hdiutil/partition_map.hpp"

#include <algorithm>
#include <array>
#include <span>

#include "platform/hdiutil/image_error.hpp"

namespace platform::hdiutil {
namespace {

constexpr std::uint64_t kSector = 512;
constexpr std::uint64_t kMostSectors = std::uint64_t{1} << 40U;
constexpr std::uint32_t kMostEntries = 256;
constexpr std::string_view kItem = "its partition map";

std::string upToNull(std::string_view text) {
  return std::string(text.substr(0, text.find('\0')));
}

void add(std::vector<Partition>& partitions, const Disk& disk, std::string type, std::uint64_t first,
         std::uint64_t count, std::uint64_t sector) {
  if (first > kMostSectors || count > kMostSectors ||
      !ByteRange{first * sector, count * sector}.within(disk.size()))
    throw ImageError("it is truncated, or its partition map is damaged");
  partitions.push_back({std::move(type), first * sector, count * sector});
}

std::vector<Partition> readApple(Disk& disk, std::uint64_t block) {
  std::vector<Partition> partitions;
  std::uint32_t count = 1;
  for (std::uint32_t index = 1; index <= count; ++index) {
    const std::string bytes = disk.read(index * block, kSector);
    const ImageBytes entry(bytes, kItem);
    if (!entry.startsWith(0, "PM"))
      entry.refuse();
    count = entry.u32(4);
    if (count > kMostEntries)
      entry.refuse();
    add(partitions, disk, upToNull(entry.bytes(48, 32)), entry.u32(8), entry.u32(12), block);
  }
  return partitions;
}

/// The text of a GUID, whose first three numbers are stored little-endian.
std::string guidText(std::string_view bytes) {
  constexpr std::array<int, 16> kOrder{3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
  std::string text;
  for (std::size_t index = 0; index < kOrder.size(); ++index) {
    if (index == 4 || index == 6 || index == 8 || index == 10)
      text += '-';
    text += hexadecimal(bytes.substr(static_cast<std::size_t>(kOrder.at(index)), 1), kUpperCaseDigits);
  }
  return text;
}

struct NamedType {
  std::string_view type;
  const char* name;
};

constexpr std::array<NamedType, 5> kGuidTypes{{
    {"48465300-0000-11AA-AA11-00306543ECAC", "Apple_HFS"},
    {"7C3457EF-0000-11AA-AA11-00306543ECAC", "Apple_APFS"},
    {"426F6F74-0000-11AA-AA11-00306543ECAC", "Apple_Boot"},
    {"52637672-7900-11AA-AA11-00306543ECAC", "Apple_APFS_Recovery"},
    {"C12A7328-F81F-11D2-BA4B-00A0C93EC93B", "EFI"},
}};

constexpr std::array<NamedType, 3> kBootRecordTypes{
    {{"af", "Apple_HFS"}, {"ab", "Apple_Boot"}, {"ef", "EFI"}}};

std::string nameOf(std::string type, std::span<const NamedType> names) {
  for (const NamedType& name : names)
    if (name.type == type)
      return name.name;
  return type;
}

std::vector<Partition> readGuid(Disk& disk) {
  const std::string headerBytes = disk.read(kSector, kSector);
  const ImageBytes header(headerBytes, kItem, ByteOrder::little);
  const std::uint64_t begin = header.u64(72);
  const std::uint32_t count = header.u32(80);
  const std::uint32_t size = header.u32(84);
  if (begin > kMostSectors || count > kMostEntries || size < 128 || size > kSector)
    header.refuse();
  const std::string entries = disk.read(begin * kSector, std::uint64_t{count} * size);
  const ImageBytes table(entries, kItem, ByteOrder::little);
  std::vector<Partition> partitions;
  for (std::uint32_t index = 0; index < count; ++index) {
    const ImageBytes entry = table.part(std::uint64_t{index} * size, size);
    const std::string_view type = entry.bytes(0, 16);
    const std::uint64_t first = entry.u64(32);
    const std::uint64_t last = entry.u64(40);
    if (std::all_of(type.begin(), type.end(), [](char byte) { return byte == 0; }))
      continue;
    if (last < first || last > kMostSectors)
      entry.refuse();
    add(partitions, disk, nameOf(guidText(type), kGuidTypes), first, last - first + 1, kSector);
  }
  return partitions;
}

std::vector<Partition> readMasterBootRecord(Disk& disk, const ImageBytes& record) {
  std::vector<Partition> partitions;
  for (std::uint64_t offset = 446; offset < 510; offset += 16) {
    const ImageBytes entry(record.bytes(offset, 16), kItem, ByteOrder::little);
    if (entry.u8(4) != 0)
      add(partitions, disk, nameOf(hexadecimal(entry.bytes(4, 1)), kBootRecordTypes), entry.u32(8),
          entry.u32(12), kSector);
  }
  return partitions;
}

}  // namespace

bool isMounted(const std::string& type) {
  constexpr std::array<std::string_view, 7> kForTheSystem{"Apple_partition_map",
                                                          "Apple_Free",
                                                          "Apple_Boot",
                                                          "Apple_Recovery",
                                                          "Apple_APFS_Recovery",
                                                          "EFI",
                                                          "C12A7328-F81F-11D2-BA4B-00A0C93EC93B"};
  return std::find(kForTheSystem.begin(), kForTheSystem.end(), type) == kForTheSystem.end() &&
         !type.starts_with("Apple_Driver");
}

std::vector<Partition> readPartitionMap(Disk& disk) {
  if (disk.size() < 3 * kSector)
    return {};
  const std::string bytes = disk.read(0, 3 * kSector);
  const ImageBytes start(bytes, kItem);
  if (start.startsWith(kSector, "EFI PART"))
    return readGuid(disk);
  if (start.startsWith(0, "ER")) {
    const std::uint16_t block = start.u16(2);
    for (const std::uint64_t size : {std::uint64_t{block}, kSector}) {
      if (size >= kSector && size % kSector == 0 && disk.size() >= size + kSector &&
          disk.read(size, 2) == "PM")
        return readApple(disk, size);
    }
  }
  if (start.startsWith(510, "\x55\xAA"))
    return readMasterBootRecord(disk, start);
  return {};
}

}  // namespace platform::hdiutil
