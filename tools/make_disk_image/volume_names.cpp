#include "tools/make_disk_image/volume_names.hpp"

#include <algorithm>
#include <map>
#include <set>

#include "platform/files/directory_enumerator.hpp"
#include "platform/foundation/error.hpp"
#include "platform/foundation/text.hpp"
#include "platform/hdiutil/hfs_plus_catalog.hpp"

namespace make_disk_image {

std::vector<std::string> pathsBelow(const platform::URL& folder) {
  std::vector<std::string> paths;
  const std::size_t prefix = folder.appendingPathComponent("x").path().size() - 1;
  platform::NSDirectoryEnumerator entries(folder, platform::DirectoryEnumerationOptions::none);
  while (const auto entry = entries.nextObject())
    paths.push_back(entry->path().substr(prefix));
  return paths;
}

void requireDistinct(const std::vector<std::string>& paths) {
  std::map<std::string, std::string> known;
  for (const std::string& path : paths) {
    const auto [other, isNew] = known.emplace(platform::caseFolded(path), path);
    if (!isNew)
      throw platform::Error(
          platform::quoted(std::min(path, other->second)) + " and " +
          platform::quoted(std::max(path, other->second)) +
          " are one item on the usual file system of a Mac, which ignores case and Unicode normalisation.");
  }
}

void requirePaths(const std::vector<std::string>& paths, const MadeVolume& volume) {
  platform::hdiutil::HfsPlusVolume reader(*volume.disk, volume.partition.offset, volume.partition.length);
  std::set<std::string> made;
  for (const std::string& path : platform::hdiutil::readHfsCatalog(reader).paths)
    made.insert(platform::canonicallyDecomposed(path));
  for (const std::string& path : paths)
    if (!made.contains(platform::canonicallyDecomposed(path)))
      throw platform::Error(platform::quoted(path) + " cannot have this name on an HFS Plus volume.");
}

}  // namespace make_disk_image
