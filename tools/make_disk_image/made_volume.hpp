#pragma once

#include <memory>

#include "platform/hdiutil/disk.hpp"
#include "platform/hdiutil/partition_map.hpp"

namespace make_disk_image {

/// A volume and the disk that contains it.
struct MadeVolume {
  std::unique_ptr<platform::hdiutil::Disk> disk;
  platform::hdiutil::Partition partition;
};

}  // namespace make_disk_image
