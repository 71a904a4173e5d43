#include "platform/tools/hdiutil/volume.hpp"

#include <fcntl.h>

#include "platform/tools/hdiutil/hfs_plus_tree.hpp"
#include "platform/tools/hdiutil/hfs_plus_volume.hpp"
#include "platform/tools/hdiutil/image_bytes.hpp"
#include "platform/tools/hdiutil/image_error.hpp"
#include "platform/tools/hdiutil/seven_zip.hpp"

namespace platform::hdiutil {

std::optional<FileSystem> fileSystemAt(Disk& disk, std::uint64_t offset) {
  constexpr std::uint64_t kSector = 512;
  if (offset > disk.size() || disk.size() - offset < kSector)
    return std::nullopt;
  if (HfsPlusVolume::isAt(disk, offset))
    return FileSystem::hfsPlus;
  const std::string bytes = disk.read(offset, kSector);
  const ImageBytes sector(bytes, "its volume");
  if (sector.startsWith(32, "NXSB"))
    return FileSystem::apfs;
  if (sector.startsWith(510, "\x55\xAA") && (sector.startsWith(54, "FAT") || sector.startsWith(82, "FAT32")))
    return FileSystem::fat;
  return std::nullopt;
}

const char* volumeKind(FileSystem fileSystem) {
  switch (fileSystem) {
    case FileSystem::hfsPlus:
      return "hfs";
    case FileSystem::apfs:
      return "apfs";
    case FileSystem::fat:
      return "msdos";
  }
  return "";
}

VolumeTree writeTree(Disk& disk, const Partition& partition, FileSystem fileSystem,
                     ImageRegistry::Attachment& attachment) {
  const URL tree = attachment.makeTree();
  if (fileSystem == FileSystem::hfsPlus) {
    HfsPlusVolume volume(disk, partition.offset, partition.length);
    return writeHfsPlusTree(volume, FileDescriptor::open(tree, O_RDONLY | O_DIRECTORY | O_NOFOLLOW),
                            attachment.directory());
  }
  const FileDescriptor volume = disk.file(partition.offset, partition.length, attachment.directory());
  return writeListedTree(
      volume, fileSystem == FileSystem::apfs ? SevenZipFileSystem::apfs : SevenZipFileSystem::fat, tree);
}

}  // namespace platform::hdiutil
