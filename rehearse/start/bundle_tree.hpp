#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/files/directory.hpp"

namespace rehearse {

/// What is in a bundle, as a file system that ignores case and normalization finds it, which is the usual one
/// on a Mac. Nothing outside the bundle is examined, not even through a link.
class BundleTree {
 public:
  struct Item {
    std::string path;  ///< relative to the bundle, as on disk; empty for the bundle itself
    platform::ItemKind kind = platform::ItemKind::special;
    mode_t permissions = 0;
    std::uint64_t size = 0;
    std::string linkTarget;  ///< of a link
  };

  /// Where a path leads.
  struct Place {
    const Item* item = nullptr;  ///< what is there after all links; null when there is nothing in the bundle
    bool leavesBundle = false;   ///< it leads out of the bundle, through ".." or a link
  };

  /// Reads the names of everything below `bundle`, which may be a link. Throws `platform::Error` unless that
  /// is a directory that can be read.
  explicit BundleTree(const std::filesystem::path& bundle);

  /// Without links.
  const std::filesystem::path& root() const noexcept { return root_; }

  /// Sorted by path.
  std::vector<const Item*> items() const;

  /// Pairs of paths that are one path to such a file system.
  const std::vector<std::pair<std::string, std::string>>& collisions() const noexcept { return collisions_; }

  /// Resolves a path relative to the bundle, with "..", links and all. A link's target is taken from the
  /// link's own directory; an absolute one leads out.
  Place resolve(std::string_view path) const;

 private:
  void read(const platform::Directory& directory, const std::string& path);
  const Item* find(const std::string& path) const;

  std::filesystem::path root_;
  std::map<std::string, Item> items_;  ///< by case-folded path
  std::vector<std::pair<std::string, std::string>> collisions_;
};

}  // namespace rehearse
