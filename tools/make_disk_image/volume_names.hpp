#pragma once

#include <string>
#include <vector>

#include "platform/files/url.hpp"
#include "tools/make_disk_image/made_volume.hpp"

namespace make_disk_image {

/// The paths of everything below a folder, relative to it.
std::vector<std::string> pathsBelow(const platform::URL& folder);

/// Throws `platform::Error`, naming two of the paths, if they are one to a file system that ignores case and
/// Unicode normalisation.
void requireDistinct(const std::vector<std::string>& paths);

/// Throws `platform::Error`, naming one of the paths, if an HFS Plus volume does not contain it.
void requirePaths(const std::vector<std::string>& paths, const MadeVolume& volume);

}  // namespace make_disk_image
