#pragma once

#include <memory>
#include <string>

#include "platform/files/file_descriptor.hpp"
#include "platform/files/url.hpp"
#include "platform/hdiutil/disk.hpp"
#include "platform/hdiutil/partition_map.hpp"

namespace quorin_tools {

/// A volume and the disk that it lies on.
struct MadeVolume {
  std::unique_ptr<platform::hdiutil::Disk> disk;
  platform::hdiutil::Partition partition;
};

/// Makes an HFS Plus volume of a folder's content, with its modes, times and links, by the program xorriso.
/// What it writes lies in `directory` without a name. Throws `platform::Error` when it fails.
MadeVolume makeHfsPlusVolume(const platform::URL& folder, const std::string& volumeName,
                             const platform::FileDescriptor& directory);

}  // namespace quorin_tools
