#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "platform/hdiutil/disk.hpp"
#include "platform/hdiutil/image_error.hpp"

namespace platform::hdiutil {

/// A contiguous range of bytes of a volume; `offset` is on the disk.
struct HfsPiece {
  std::uint64_t offset;
  std::uint64_t length;
};

/// The location of content: its size in bytes and its first eight extents, in allocation blocks.
struct HfsFork {
  std::uint64_t size = 0;
  struct Extent {
    std::uint32_t start;
    std::uint32_t count;
  };
  std::array<Extent, 8> extents{};
};

enum class HfsForkKind : std::uint8_t { data = 0x00, resource = 0xFF };

/// An HFS Plus volume (Apple Technical Note TN1150), open for reading. All operations throw `ImageError` for
/// damage.
class HfsPlusVolume {
 public:
  /// True when a volume of this kind starts at `offset`.
  static bool isAt(Disk& disk, std::uint64_t offset);

  /// Opens the volume at `offset`, which takes at most `length` bytes. `disk` must outlive it.
  HfsPlusVolume(Disk& disk, std::uint64_t offset, std::uint64_t length);

  using RecordReader = std::function<void(const ImageBytes& key, const ImageBytes& data)>;

  /// Passes every leaf record of a tree to `reader`, in the order of the tree; `key` is without its length.
  void readCatalog(const RecordReader& reader);
  void readAttributes(const RecordReader& reader);

  /// The pieces of a fork's content, in the order of the content. Together they are as long as the fork.
  std::vector<HfsPiece> pieces(const HfsFork& fork, std::uint32_t fileIdentifier, HfsForkKind kind) const;

  Disk& disk() const noexcept { return disk_; }

 private:
  using OverflowKey = std::tuple<std::uint32_t, HfsForkKind, std::uint32_t>;  ///< file, fork, first block

  void readOverflow();
  void readTree(const std::string& bytes, const RecordReader& reader) const;
  std::string content(const HfsFork& fork, std::uint32_t fileIdentifier) const;

  Disk& disk_;
  std::uint64_t offset_;
  std::uint64_t length_;
  std::uint32_t blockSize_ = 0;
  std::uint32_t blockCount_ = 0;
  HfsFork overflow_;
  HfsFork catalog_;
  HfsFork attributes_;
  std::map<OverflowKey, std::array<HfsFork::Extent, 8>> overflowExtents_;
};

/// Decodes the 80 bytes of a fork in a record.
HfsFork readHfsFork(const ImageBytes& bytes);

}  // namespace platform::hdiutil
