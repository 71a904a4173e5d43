#include "tools/make_disk_image/hfs_plus_maker.hpp"

#include <fcntl.h>

#include <algorithm>

#include "platform/foundation/error.hpp"
#include "platform/hdiutil/child_program.hpp"
#include "tools/make_disk_image/volume_names.hpp"

namespace make_disk_image {
namespace {

using platform::Error;
using platform::FileDescriptor;
using platform::hdiutil::Partition;

constexpr std::size_t kLongestName = 32;

FileDescriptor runXorriso(const platform::URL& folder, const std::string& volumeName,
                          const FileDescriptor& directory) {
  const FileDescriptor input = FileDescriptor::open(platform::URL::fileURLWithPath("/dev/null"), O_RDONLY);
  FileDescriptor output = platform::hdiutil::namelessFile(directory);
  const FileDescriptor messages = platform::hdiutil::namelessFile(directory);
  // Deep directories are not relocated, names are not changed, and files may exceed 4 GiB.
  platform::hdiutil::ChildProgram program("/usr/bin/xorriso",
                                          {"-as", "mkisofs", "-quiet", "-hfsplus", "-D", "-U", "-iso-level",
                                           "3", "-V", volumeName, folder.path()},
                                          {input.get(), output.get(), messages.get()});
  if (!program.succeeds()) {
    std::string text(platform::hdiutil::sizeOf(messages), '\0');
    platform::hdiutil::readAt(messages, 0, text);
    throw Error("xorriso could not make a volume of " + platform::quoted(folder.path()) + ": " + text);
  }
  return output;
}

}  // namespace

MadeVolume makeHfsPlusVolume(const platform::URL& folder, const std::string& volumeName,
                             const FileDescriptor& directory) {
  if (volumeName.empty() || volumeName.size() > kLongestName)
    throw Error("The volume's name must have 1 to " + std::to_string(kLongestName) + " bytes.");
  const std::vector<std::string> paths = pathsBelow(folder);
  requireDistinct(paths);
  auto disk = std::make_unique<platform::hdiutil::RawDisk>(runXorriso(folder, volumeName, directory));
  const auto partitions = platform::hdiutil::readPartitionMap(*disk);
  const auto volume = std::find_if(partitions.begin(), partitions.end(),
                                   [](const Partition& partition) { return partition.type == "Apple_HFS"; });
  if (volume == partitions.end())
    throw Error("xorriso did not make an HFS Plus volume.");
  MadeVolume made{std::move(disk), *volume};
  // xorriso changes names that it regards as equal or invalid.
  requirePaths(paths, made);
  return made;
}

}  // namespace make_disk_image
