#include "platform/hdiutil/attach.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <numeric>
#include <optional>
#include <utility>

#include "platform/foundation/error.hpp"
#include "platform/hdiutil/disk.hpp"
#include "platform/hdiutil/image_error.hpp"
#include "platform/hdiutil/partition_map.hpp"
#include "platform/hdiutil/udif.hpp"
#include "platform/hdiutil/udif_disk.hpp"
#include "platform/hdiutil/volume.hpp"

namespace platform::hdiutil {
namespace {

FileDescriptor openImage(const URL& url) {
  FileDescriptor image = FileDescriptor::open(url, O_RDONLY | O_NONBLOCK | O_NOCTTY);
  struct stat status {};
  if (::fstat(image.get(), &status) != 0)
    throw SystemError("The disk image could not be examined", errno);
  if (!S_ISREG(status.st_mode))
    throw ImageError("it is not a file");
  return image;
}

void refuseUnsupportedContainer(const FileDescriptor& image) {
  constexpr std::size_t kSignatureSize = 8;
  std::string start(kSignatureSize, '\0');
  readAt(image, 0, start);
  const std::uint64_t size = sizeOf(image);
  std::string end(kSignatureSize, '\0');
  if (size >= kSignatureSize)
    readAt(image, size - kSignatureSize, end);
  if (start == "encrcdsa" || end == "cdsaencr")
    throw UnsupportedImageError("its encryption");
  if (start.starts_with("sprs"))
    throw UnsupportedImageError("its format (sparse image)");
}

/// A disk and the partitions that may contain volumes.
struct OpenImage {
  std::unique_ptr<Disk> disk;
  std::vector<Partition> partitions;
  bool isDescribed = false;  ///< has block tables
};

/// The type between the brackets of a block table's name, as in "disk image (Apple_HFS : 4)".
std::string typeIn(const std::string& name) {
  const auto begin = name.rfind('(');
  const auto end = name.find(" :", begin == std::string::npos ? 0 : begin);
  return begin == std::string::npos || end == std::string::npos ? name
                                                                : name.substr(begin + 1, end - begin - 1);
}

/// The partitions in the disk's own map, or else those of the image's block tables.
std::vector<Partition> partitionsOf(Disk& disk, const std::vector<UdifTable>& tables) {
  std::vector<Partition> partitions;
  try {
    partitions = readPartitionMap(disk);
  } catch (const ImageError&) {
    if (tables.size() < 2)
      throw;
  }
  if (partitions.empty() && tables.size() > 1) {
    for (const UdifTable& table : tables)
      partitions.push_back({typeIn(table.name), table.offset, table.length});
  }
  return partitions;
}

std::vector<Partition> findPartitions(Disk& disk, const std::vector<UdifTable>& tables) {
  if (fileSystemAt(disk, 0))
    return {{"", 0, disk.size()}};
  try {
    return partitionsOf(disk, tables);
  } catch (const ImageError&) {
    // The boot code of another file system can look like a damaged partition map.
    if (!unsupportedFileSystemAt(disk, 0))
      throw;
    return {{"", 0, disk.size()}};
  }
}

OpenImage open(const URL& url, const FileDescriptor& work) {
  FileDescriptor file = openImage(url);
  refuseUnsupportedContainer(file);
  std::optional<UdifImage> description = readUdif(file);
  OpenImage image;
  if (description) {
    const std::vector<UdifTable> tables = description->tables;
    image.isDescribed = true;
    image.disk = std::make_unique<UdifDisk>(std::move(file), std::move(*description), work);
    image.partitions = findPartitions(*image.disk, tables);
  } else {
    image.disk = std::make_unique<RawDisk>(std::move(file));
    image.partitions = findPartitions(*image.disk, {});
  }
  return image;
}

PropertyList::Dictionary entity(const std::string& device, const std::string& hint, bool isMountable) {
  PropertyList::Dictionary entity;
  entity.emplace("dev-entry", device);
  entity.emplace("potentially-mountable", PropertyList(isMountable));
  if (!hint.empty())
    entity.emplace("content-hint", hint);
  return entity;
}

/// The content hint of a volume in an APFS container.
constexpr const char* kApfsVolumeType = "41504653-0000-11AA-AA11-00306543ECAC";

/// A partition, or a volume in an APFS container, in the property list.
struct Slice {
  std::string hint;
  std::string kind;                       ///< empty when no volume was read from it
  std::optional<VolumeTree> volume = {};  ///< the volume that was read
  std::string mountName = {};             ///< empty while it is not mounted
};

/// Reads the volumes of an image and mounts those that can be read.
class AttachedImage {
 public:
  AttachedImage(const URL& url, ImageRegistry::Attachment& attachment)
      : attachment_(attachment), image_(open(url, attachment.directory().descriptor())) {
    slices_.resize(image_.partitions.size());
  }

  void read() {
    if (!fileSystemAt(*image_.disk, 0))
      noteUnsupported(0);
    // In the order of the disk, because it is unpacked only once.
    std::vector<std::size_t> order(image_.partitions.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [this](std::size_t one, std::size_t other) {
      return image_.partitions[one].offset < image_.partitions[other].offset;
    });
    for (const std::size_t index : order)
      readPartition(index);
    image_.disk->finish();
    for (Slice& slice : slices_) {
      if (slice.volume && slice.volume->tree)
        slice.mountName = attachment_.mount(*slice.volume->tree, slice.volume->name);
    }
    attachment_.discardTrees();
    if (std::all_of(slices_.begin(), slices_.end(),
                    [](const Slice& slice) { return slice.mountName.empty(); }))
      refuse();
  }

  PropertyList describe(const ImageRegistry& registry, unsigned device) const {
    const std::string disk = "/dev/disk" + std::to_string(device);
    PropertyList::Array entities;
    entities.emplace_back(entity(disk, "", false));
    for (std::size_t index = 0; index < slices_.size(); ++index) {
      const Slice& slice = slices_[index];
      PropertyList::Dictionary item =
          entity(disk + "s" + std::to_string(index + 1), slice.hint, !slice.kind.empty());
      if (!slice.kind.empty())
        item.emplace("volume-kind", slice.kind);
      if (!slice.mountName.empty())
        item.emplace("mount-point", registry.mountPoint(device, slice.mountName).path());
      entities.emplace_back(std::move(item));
    }
    PropertyList::Dictionary root;
    root.emplace("system-entities", PropertyList(std::move(entities)));
    return PropertyList(std::move(root));
  }

 private:
  void readPartition(std::size_t index) {
    const Partition& partition = image_.partitions[index];
    slices_[index].hint = partition.type;
    // Several partitions may contain the same volume, which is read once.
    if (!isMounted(partition.type) || partition.offset < readEnd_)
      return;
    try {
      image_.disk->skip(partition.offset);
      if (const auto fileSystem = fileSystemAt(*image_.disk, partition.offset)) {
        add(index, *fileSystem, writeTrees(*image_.disk, partition, *fileSystem, attachment_));
        readEnd_ = partition.offset + partition.length;
      } else {
        noteUnsupported(partition.offset);
      }
    } catch (const ImageLimitError&) {
      throw;
    } catch (const ImageError&) {
      // The image is attached all the same if another volume can be mounted.
      if (!failure_)
        failure_ = std::current_exception();
    }
  }

  /// The volumes of a container are separate devices after those of the partitions.
  void add(std::size_t index, FileSystem fileSystem, std::vector<VolumeTree> volumes) {
    if (fileSystem != FileSystem::apfs) {
      slices_[index].kind = volumeKind(fileSystem);
      slices_[index].volume = std::move(volumes.front());
      return;
    }
    for (VolumeTree& volume : volumes)
      slices_.push_back({kApfsVolumeType, volumeKind(fileSystem), std::move(volume), {}});
  }

  void noteUnsupported(std::uint64_t offset) {
    if (!unsupported_)
      unsupported_ = unsupportedFileSystemAt(*image_.disk, offset);
  }

  [[noreturn]] void refuse() const {
    if (failure_)
      std::rethrow_exception(failure_);
    if (unsupported_)
      throw UnsupportedImageError("its file system (" + *unsupported_ + ")");
    if (image_.isDescribed || !image_.partitions.empty())
      throw UnsupportedImageError("the file system of its volumes");
    throw ImageError("it is not a disk image");
  }

  ImageRegistry::Attachment& attachment_;
  OpenImage image_;
  std::vector<Slice> slices_;
  std::uint64_t readEnd_ = 0;  ///< the end of the last partition with a volume
  std::exception_ptr failure_;
  std::optional<std::string> unsupported_;  ///< the name of a file system
};

}  // namespace

void attach(const URL& url, ImageRegistry& registry,
            const std::function<void(const PropertyList&)>& announce) {
  ImageRegistry::Attachment attachment(registry);
  AttachedImage image(url, attachment);
  image.read();
  attachment.commit([&](unsigned device) { announce(image.describe(registry, device)); });
}

}  // namespace platform::hdiutil
