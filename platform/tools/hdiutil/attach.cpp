#include "platform/tools/hdiutil/attach.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <optional>

#include "platform/foundation/error.hpp"
#include "platform/tools/hdiutil/disk.hpp"
#include "platform/tools/hdiutil/image_error.hpp"
#include "platform/tools/hdiutil/partition_map.hpp"
#include "platform/tools/hdiutil/udif.hpp"
#include "platform/tools/hdiutil/udif_disk.hpp"
#include "platform/tools/hdiutil/volume.hpp"

namespace platform::hdiutil {
namespace {

FileDescriptor openImage(const URL& url) {
  FileDescriptor image = FileDescriptor::open(url, O_RDONLY | O_NONBLOCK | O_NOCTTY);
  struct stat status {};
  if (::fstat(image.get(), &status) != 0)
    throw SystemError("The disk image could not be examined", errno);
  if (!S_ISREG(status.st_mode))
    throw ImageError("it is no file.");
  return image;
}

void refuseEncrypted(const FileDescriptor& image) {
  constexpr std::size_t kSignatureSize = 8;
  std::string start(kSignatureSize, '\0');
  readAt(image, 0, start);
  const std::uint64_t size = sizeOf(image);
  std::string end(kSignatureSize, '\0');
  if (size >= kSignatureSize)
    readAt(image, size - kSignatureSize, end);
  if (start == "encrcdsa" || end == "cdsaencr")
    throw ImageError("it is encrypted.");
}

/// A disk and the places on it where volumes may be.
struct OpenImage {
  std::unique_ptr<Disk> disk;
  std::vector<Partition> partitions;
};

/// The type between the brackets of a block table's name, as in "disk image (Apple_HFS : 4)".
std::string typeIn(const std::string& name) {
  const auto begin = name.rfind('(');
  const auto end = name.find(" :", begin == std::string::npos ? 0 : begin);
  return begin == std::string::npos || end == std::string::npos ? name
                                                                : name.substr(begin + 1, end - begin - 1);
}

std::vector<Partition> findPartitions(Disk& disk, const std::vector<UdifTable>& tables) {
  if (fileSystemAt(disk, 0))
    return {{"", 0, disk.size()}};
  std::vector<Partition> partitions;
  if (tables.size() > 1) {
    for (const UdifTable& table : tables)
      partitions.push_back({typeIn(table.name), table.offset, table.length});
  } else {
    partitions = readPartitionMap(disk);
  }
  // In the order of the disk it is unpacked only once.
  std::stable_sort(partitions.begin(), partitions.end(),
                   [](const Partition& one, const Partition& other) { return one.offset < other.offset; });
  return partitions;
}

OpenImage open(const URL& url, const FileDescriptor& work) {
  FileDescriptor file = openImage(url);
  refuseEncrypted(file);
  std::optional<UdifImage> description = readUdif(file);
  OpenImage image;
  if (description) {
    const std::vector<UdifTable> tables = description->tables;
    image.disk = std::make_unique<UdifDisk>(std::move(file), std::move(*description), work);
    image.partitions = findPartitions(*image.disk, tables);
  } else {
    image.disk = std::make_unique<RawDisk>(std::move(file));
    image.partitions = findPartitions(*image.disk, {});
  }
  return image;
}

/// The system's own partition for starting up is never mounted.
bool isBootPartition(const std::string& type) {
  return type.find("C12A7328-F81F-11D2-BA4B-00A0C93EC93B") != std::string::npos ||
         type == "28732AC11FF8D211BA4B00A0C93EC93B";
}

struct Volume {
  Partition partition;
  FileSystem fileSystem;
  std::size_t slice;  ///< the number of its partition, from 1
};

PropertyList::Dictionary entity(const std::string& device, const std::string& hint) {
  PropertyList::Dictionary entity;
  entity.emplace("dev-entry", device);
  if (!hint.empty())
    entity.emplace("content-hint", hint);
  return entity;
}

PropertyList describe(const std::vector<Volume>& volumes, std::size_t mounted, unsigned device,
                      const URL& mountPoint) {
  const std::string disk = "/dev/disk" + std::to_string(device);
  PropertyList::Array entities;
  PropertyList::Dictionary whole = entity(disk, "");
  whole.emplace("potentially-mountable", PropertyList(false));
  entities.emplace_back(std::move(whole));
  for (std::size_t index = 0; index < volumes.size(); ++index) {
    const Volume& volume = volumes[index];
    PropertyList::Dictionary item = entity(disk + "s" + std::to_string(volume.slice), volume.partition.type);
    item.emplace("potentially-mountable", PropertyList(true));
    item.emplace("volume-kind", volumeKind(volume.fileSystem));
    if (index == mounted)
      item.emplace("mount-point", mountPoint.path());
    entities.emplace_back(std::move(item));
  }
  PropertyList::Dictionary root;
  root.emplace("system-entities", PropertyList(std::move(entities)));
  return PropertyList(std::move(root));
}

}  // namespace

void attach(const URL& url, ImageRegistry& registry,
            const std::function<void(const PropertyList&)>& announce) {
  ImageRegistry::Attachment attachment(registry);
  const OpenImage image = open(url, attachment.directory());
  std::vector<Volume> volumes;
  std::optional<std::size_t> mounted;
  VolumeTree tree{"", false};
  for (std::size_t index = 0; index < image.partitions.size(); ++index) {
    const Partition& partition = image.partitions[index];
    const auto fileSystem = fileSystemAt(*image.disk, partition.offset);
    if (!fileSystem || isBootPartition(partition.type))
      continue;
    volumes.push_back({partition, *fileSystem, index + 1});
    if (mounted && tree.holdsFiles)
      continue;
    VolumeTree candidate = writeTree(*image.disk, partition, *fileSystem, attachment);
    if (!mounted || candidate.holdsFiles) {
      mounted = volumes.size() - 1;
      tree = std::move(candidate);
    }
  }
  if (!mounted)
    throw ImageError("it is no disk image, or it holds no volume that can be read.");
  image.disk->finish();
  attachment.commit(tree.name, [&](unsigned device) {
    announce(describe(volumes, *mounted, device, registry.mountPoint(device, tree.name)));
  });
}

}  // namespace platform::hdiutil
