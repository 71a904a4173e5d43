#pragma once

#include <string>

namespace platform::hdiutil {

/// What a volume turned out to be when its tree was written.
struct VolumeTree {
  std::string name;
  bool holdsFiles;
};

}  // namespace platform::hdiutil
