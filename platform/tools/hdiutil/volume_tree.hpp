#pragma once

#include <array>
#include <string>
#include <string_view>

namespace platform::hdiutil {

/// What a volume turned out to be when its tree was written.
struct VolumeTree {
  std::string name;
  bool holdsFiles;
};

/// What stands in the root folder of a volume for the system's own purposes, whatever its file system.
inline constexpr std::array<std::string_view, 5> kHousekeepingNames{
    ".Spotlight-V100", ".fseventsd", ".Trashes", ".DocumentRevisions-V100", ".TemporaryItems"};

}  // namespace platform::hdiutil
