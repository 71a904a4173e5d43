#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <tuple>

#include "rehearse/files/trees.hpp"

namespace rehearse {

/// Makes inventories without reading a file twice that has not changed. A file is the same as one that was
/// read when device, inode, size and the times of the last modification and status change are equal, and the
/// latter was so long ago when it was read that a change since would have another time.
class KnownContents {
 public:
  Inventory inventory(const std::filesystem::path& root);
  /// A regular file's content, as `digestWhereLong` gives it.
  std::string contentOf(const std::filesystem::path& file);

 private:
  using Identity = std::tuple<dev_t, ino_t, off_t, std::int64_t, std::int64_t>;

  std::map<Identity, std::string> known_;
};

}  // namespace rehearse
