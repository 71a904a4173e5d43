#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "platform/hdiutil/compressed_file.hpp"
#include "platform/hdiutil/hfs_plus_catalog.hpp"
#include "platform/hdiutil/hfs_plus_volume.hpp"

namespace platform::hdiutil {

/// The compressed files of a volume by their identifiers.
using CompressionAttributes = std::unordered_map<std::uint32_t, CompressedFile>;

/// Reads the attributes that tell how the compressed ones among `entries` are stored.
CompressionAttributes readCompressionAttributes(HfsPlusVolume& volume, const std::vector<HfsEntry>& entries);

}  // namespace platform::hdiutil
