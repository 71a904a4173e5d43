#include "platform/hdiutil/apfs_container.hpp"

#include <algorithm>
#include <map>
#include <vector>

#include "platform/hdiutil/disk.hpp"
#include "platform/hdiutil/image_error.hpp"

namespace platform::hdiutil {
namespace {

constexpr std::uint32_t kSmallestBlock = 4096;
constexpr std::uint32_t kLargestBlock = 65536;
constexpr std::uint32_t kMostCheckpointBlocks = 4096;
constexpr std::uint32_t kMostVolumes = 100;
constexpr std::size_t kMostNodes = 256;
constexpr std::uint64_t kRootInfoSize = 40;
constexpr std::uint16_t kRootNode = 1;
constexpr std::uint16_t kLeafNode = 2;
constexpr std::uint64_t kUnencrypted = 1;
constexpr std::string_view kItem = "its APFS container";

enum Role : std::uint16_t { kRecovery = 0x0004, kVM = 0x0008, kPreboot = 0x0010 };

ImageBytes reader(std::string_view bytes) {
  return {bytes, kItem, ByteOrder::little};
}

class Container {
 public:
  explicit Container(const FileDescriptor& file) : file_(file), size_(sizeOf(file)) {
    blockSize_ = kSmallestBlock;
    const std::string first = block(0);
    blockSize_ = reader(first).u32(36);
    if (blockSize_ < kSmallestBlock || blockSize_ > kLargestBlock)
      throw ImageError::damaged(kItem);
  }

  std::unordered_map<std::string, ApfsVolume> volumes() {
    const std::string bytes = newestSuperblock();
    const ImageBytes superblock = reader(bytes);
    const std::string map = block(superblock.u64(160));
    readObjects(reader(map).u64(48));
    std::unordered_map<std::string, ApfsVolume> volumes;
    const std::uint32_t count = std::min(superblock.u32(180), kMostVolumes);
    for (std::uint32_t index = 0; index < count; ++index) {
      const auto found = objects_.find(superblock.u64(184 + 8 * std::uint64_t{index}));
      if (found != objects_.end())
        addVolume(volumes, block(found->second.address));
    }
    return volumes;
  }

 private:
  struct Object {
    std::uint64_t transaction;
    std::uint64_t address;
  };

  std::string block(std::uint64_t address) const {
    if (address >= size_ / blockSize_)
      throw ImageError::damaged(kItem);
    std::string bytes(blockSize_, '\0');
    readAt(file_, address * blockSize_, bytes);
    return bytes;
  }

  /// The superblock in the first block is a copy, which may be older than the newest checkpoint after a
  /// crash.
  std::string newestSuperblock() const {
    std::string newest = block(0);
    const ImageBytes first = reader(newest);
    const std::uint32_t count = first.u32(104);
    const std::uint64_t base = first.u64(112);
    std::uint64_t transaction = first.u64(16);
    // If the highest bit of the count is set, the checkpoints are in a tree, which is not read.
    for (std::uint64_t index = 0; count <= kMostCheckpointBlocks && index < count; ++index) {
      std::string bytes = block(base + index);
      const ImageBytes candidate = reader(bytes);
      if (candidate.startsWith(32, "NXSB") && candidate.u64(16) > transaction) {
        transaction = candidate.u64(16);
        newest = std::move(bytes);
      }
    }
    return newest;
  }

  /// Reads all leaves of the object map's tree, which contains little but the volumes.
  void readObjects(std::uint64_t root) {
    std::vector<std::uint64_t> nodes{root};
    for (std::size_t next = 0; next < nodes.size() && next < kMostNodes; ++next) {
      const std::string bytes = block(nodes[next]);
      readNode(reader(bytes), nodes);
    }
  }

  void readNode(const ImageBytes& node, std::vector<std::uint64_t>& nodes) {
    constexpr std::uint64_t kHeaderSize = 56;
    const std::uint32_t flags = node.u16(32);
    const std::uint32_t count = node.u32(36);
    const std::uint64_t table = kHeaderSize + node.u16(40);
    const std::uint64_t keys = table + node.u16(42);
    const std::uint64_t end = node.size() - ((flags & kRootNode) != 0 ? kRootInfoSize : 0);
    for (std::uint64_t index = 0; index < count; ++index) {
      const std::uint64_t key = keys + node.u16(table + 4 * index);
      const std::uint64_t back = node.u16(table + 4 * index + 2);
      if (back > end)
        node.refuse();
      if ((flags & kLeafNode) == 0) {
        nodes.push_back(node.u64(end - back));
        continue;
      }
      const Object object{node.u64(key + 8), node.u64(end - back + 8)};
      Object& newest = objects_.try_emplace(node.u64(key), object).first->second;
      if (object.transaction > newest.transaction)
        newest = object;
    }
  }

  static void addVolume(std::unordered_map<std::string, ApfsVolume>& volumes, const std::string& bytes) {
    const ImageBytes superblock = reader(bytes);
    if (superblock.startsWith(32, "APSB"))
      volumes.emplace(hexadecimal(superblock.bytes(240, 16)),
                      ApfsVolume{superblock.u16(964), (superblock.u64(264) & kUnencrypted) == 0});
  }

  const FileDescriptor& file_;
  std::uint64_t size_;
  std::uint32_t blockSize_;
  std::map<std::uint64_t, Object> objects_;
};

}  // namespace

bool ApfsVolume::isForUsers() const noexcept {
  return role != kRecovery && role != kVM && role != kPreboot;
}

std::unordered_map<std::string, ApfsVolume> readApfsVolumes(const FileDescriptor& container) {
  try {
    return Container(container).volumes();
  } catch (const ImageError&) {
    return {};
  }
}

}  // namespace platform::hdiutil
