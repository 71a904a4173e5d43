#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace platform::hdiutil {

/// A volume that was read.
struct VolumeTree {
  std::string name;
  /// The directory of its tree, below the one that was given for all; nothing when it is not to be mounted.
  std::optional<std::string> tree;
};

/// What the root folder of a volume contains for the system's own purposes, whatever its file system.
inline constexpr std::array<std::string_view, 5> kHousekeepingNames{
    ".Spotlight-V100", ".fseventsd", ".Trashes", ".DocumentRevisions-V100", ".TemporaryItems"};

}  // namespace platform::hdiutil
