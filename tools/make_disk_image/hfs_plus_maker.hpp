#pragma once

#include <memory>
#include <string>

#include "platform/files/file_descriptor.hpp"
#include "platform/files/url.hpp"
#include "platform/hdiutil/disk.hpp"
#include "platform/hdiutil/partition_map.hpp"

namespace make_disk_image {

/// A volume and the disk that contains it.
struct MadeVolume {
  std::unique_ptr<platform::hdiutil::Disk> disk;
  platform::hdiutil::Partition partition;
};

/// Makes an HFS Plus volume of a folder's content, including modes, times and links, with xorriso. The disk
/// is an unlinked file on the file system of `directory`. Throws `platform::Error`.
MadeVolume makeHfsPlusVolume(const platform::URL& folder, const std::string& volumeName,
                             const platform::FileDescriptor& directory);

}  // namespace make_disk_image
