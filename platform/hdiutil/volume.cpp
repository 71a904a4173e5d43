#include "platform/hdiutil/volume.hpp"

#include <fcntl.h>

#include <array>

#include "platform/foundation/best_effort.hpp"
#include "platform/hdiutil/hfs_plus_tree.hpp"
#include "platform/hdiutil/hfs_plus_volume.hpp"
#include "platform/hdiutil/image_error.hpp"
#include "platform/hdiutil/seven_zip.hpp"

namespace platform::hdiutil {
namespace {

constexpr std::uint64_t kSector = 512;

/// Takes the place of the OEM name in a boot sector that may otherwise be that of a FAT volume.
constexpr std::string_view kBitLocker = "-FVE-FS-";

/// The magic number of a file system.
struct Signature {
  std::uint64_t offset;
  std::string_view mark;
  const char* name;
};

constexpr std::array<Signature, 8> kUnsupported{{
    {3, "EXFAT   ", "exFAT"},
    {3, "NTFS    ", "NTFS"},
    {1024, "BD", "HFS"},
    {1080, "\x53\xEF", "ext"},
    {32769, "CD001", "ISO 9660"},
    {32769, "BEA01", "UDF"},
    {3, kBitLocker, "BitLocker"},
    {0, "LUKS", "LUKS"},
}};

std::vector<VolumeTree> writeInto(const URL& tree, Disk& disk, const Partition& partition,
                                  FileSystem fileSystem, const Directory& work) {
  if (fileSystem == FileSystem::hfsPlus) {
    HfsPlusVolume volume(disk, partition.offset, partition.length);
    const Directory root = Directory::open(tree, Directory::Links::refused);
    return {{writeHfsPlusTree(volume, root, work), std::string()}};
  }
  const FileDescriptor volume = disk.file(partition.offset, partition.length, work.descriptor());
  if (fileSystem == FileSystem::apfs)
    return writeApfsTrees(volume, tree);
  return {{writeFatTree(volume, tree), std::string()}};
}

}  // namespace

std::optional<FileSystem> fileSystemAt(Disk& disk, std::uint64_t offset) {
  if (!ByteRange{offset, kSector}.within(disk.size()))
    return std::nullopt;
  if (HfsPlusVolume::isAt(disk, offset))
    return FileSystem::hfsPlus;
  const std::string bytes = disk.read(offset, kSector);
  const ImageBytes sector(bytes, "its volume");
  if (sector.startsWith(32, "NXSB"))
    return FileSystem::apfs;
  if (sector.startsWith(510, "\x55\xAA") && !sector.startsWith(3, kBitLocker) &&
      (sector.startsWith(54, "FAT") || sector.startsWith(82, "FAT32")))
    return FileSystem::fat;
  return std::nullopt;
}

std::optional<std::string> unsupportedFileSystemAt(Disk& disk, std::uint64_t offset) {
  for (const Signature& signature : kUnsupported) {
    if (ByteRange{offset, signature.offset + signature.mark.size()}.within(disk.size()) &&
        disk.read(offset + signature.offset, signature.mark.size()) == signature.mark)
      return signature.name;
  }
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

std::vector<VolumeTree> writeTrees(Disk& disk, const Partition& partition, FileSystem fileSystem,
                                   ImageRegistry::Attachment& attachment) {
  const std::string tree = attachment.makeTree();
  try {
    std::vector<VolumeTree> volumes =
        writeInto(attachment.location(tree), disk, partition, fileSystem, attachment.directory());
    for (VolumeTree& volume : volumes) {
      if (volume.tree)
        volume.tree = volume.tree->empty() ? tree : tree + "/" + *volume.tree;
    }
    return volumes;
  } catch (...) {
    // The attachment removes what remains.
    bestEffort([&] { attachment.discard(tree); });
    throw;
  }
}

}  // namespace platform::hdiutil
