#pragma once

#include <string>

#include "platform/files/file_descriptor.hpp"
#include "platform/files/url.hpp"
#include "tools/make_disk_image/made_volume.hpp"

namespace make_disk_image {

/// Makes an HFS Plus volume of a folder's content, including modes, times and links, with xorriso. The disk
/// is an unlinked file on the file system of `directory`. Throws `platform::Error`, also for names that the
/// volume cannot keep.
MadeVolume makeHfsPlusVolume(const platform::URL& folder, const std::string& volumeName,
                             const platform::FileDescriptor& directory);

}  // namespace make_disk_image
