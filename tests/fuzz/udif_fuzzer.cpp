#include <zlib.h>

#include "platform/formats/property_list.hpp"
#include "platform/hdiutil/udif.hpp"
#include "tests/fuzz/fuzz_input.hpp"
#include "tests/fuzz/memory_disk.hpp"

namespace {

using platform::PropertyList;

constexpr std::size_t kTrailerSize = 512;

void put(std::string& bytes, std::size_t offset, std::uint64_t value, int size) {
  for (int place = size; place-- > 0; value >>= 8U)
    bytes[offset + static_cast<std::size_t>(place)] = static_cast<char>(value & 0xFFU);
}

/// A disk image with the bytes as its block table, under checksums that hold.
std::string imageWith(std::string table) {
  const std::string checksum = table.size() < 76 ? std::string() : table.substr(72, 4);
  const std::string list(
      platform::NSPropertyListSerialization::dataWithPropertyList(
          PropertyList(PropertyList::Dictionary{
              {"resource-fork",
               PropertyList(PropertyList::Dictionary{
                   {"blkx", PropertyList(PropertyList::Array{PropertyList(PropertyList::Dictionary{
                                {"Data", PropertyList(platform::Data(std::move(table)))}})})}})}}))
          .bytes());
  std::string trailer(kTrailerSize, '\0');
  trailer.replace(0, 4, "koly");
  put(trailer, 4, 4, 4);
  put(trailer, 8, kTrailerSize, 4);
  put(trailer, 32, list.size(), 8);
  put(trailer, 224, list.size(), 8);
  put(trailer, 352, 2, 4);
  put(trailer, 356, 32, 4);
  put(trailer, 360,
      ::crc32(0, reinterpret_cast<const Bytef*>(checksum.data()), static_cast<uInt>(checksum.size())), 4);
  put(trailer, 492, std::uint64_t{1} << 32U, 8);
  return list + trailer;
}

}  // namespace

// The input is a whole image or a block table. What is read of it does not overlap and covers what it says.
void fuzz::read(const std::string& bytes) {
  const bool isImage =
      bytes.size() >= kTrailerSize && bytes.compare(bytes.size() - kTrailerSize, 4, "koly") == 0;
  const auto image = platform::hdiutil::readUdif(fuzz::memoryFile(isImage ? bytes : imageWith(bytes)));
  if (!image)
    return;
  std::uint64_t end = 0;
  for (const auto& table : image->tables) {
    fuzz::require(table.offset >= end && table.length <= image->diskSize);
    std::uint64_t length = 0;
    for (const auto& run : table.runs)
      length += run.length;
    fuzz::require(length == table.length);
    end = table.offset + table.length;
  }
  fuzz::require(end == image->diskSize);
}
