#include "platform/hdiutil/hfs_plus_attributes.hpp"

#include <algorithm>
#include <unordered_set>

#include "platform/hdiutil/image_error.hpp"

namespace platform::hdiutil {
namespace {

constexpr std::uint32_t kInlineRecord = 0x10;
constexpr std::uint64_t kInlineHeaderSize = 16;

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

CompressionAttributes readCompressionAttributes(HfsPlusVolume& volume, const std::vector<HfsEntry>& entries) {
  std::unordered_set<std::uint32_t> wanted;
  for (const HfsEntry& entry : entries) {
    if (entry.isCompressed)
      wanted.insert(entry.identifier);
  }
  CompressionAttributes attributes;
  if (wanted.empty())
    return attributes;
  volume.readAttributes([&](const ImageBytes& key, const ImageBytes& data) {
    const std::uint32_t file = key.u32(2);
    if (!wanted.contains(file) || !isNamed(key, "com.apple.decmpfs"))
      return;
    if (data.u32(0) != kInlineRecord)
      throw UnsupportedImageError("the compression of a file in its volume (in an attribute of its own)");
    const std::string_view content = data.bytes(kInlineHeaderSize, data.u32(12));
    attributes.emplace(file, CompressedFile(std::string(content)));
  });
  return attributes;
}

}  // namespace platform::hdiutil
