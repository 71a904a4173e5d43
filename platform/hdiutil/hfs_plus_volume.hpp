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

/// A run of bytes of a volume, by its place on the disk.
struct HfsPiece {
  std::uint64_t offset;
  std::uint64_t length;
};

/// Where the content of a file lies: its size in bytes and its first eight extents, in allocation blocks.
struct HfsFork {
  std::uint64_t size = 0;
  struct Extent {
    std::uint32_t start;
    std::uint32_t count;
  };
  std::array<Extent, 8> extents{};
};

enum class HfsForkKind : std::uint8_t { data = 0x00, resource = 0xFF };

/// An HFS Plus volume (Apple Technical Note TN1150), opened for reading. Damage of every kind is an
/// `ImageError`.
class HfsPlusVolume {
 public:
  /// True when a volume of this kind starts at `offset`.
  static bool isAt(Disk& disk, std::uint64_t offset);

  /// `disk` outlives the volume, which lies within `length` bytes.
  HfsPlusVolume(Disk& disk, std::uint64_t offset, std::uint64_t length);

  using RecordReader = std::function<void(const ImageBytes& key, const ImageBytes& data)>;

  /// Hands every leaf record of a tree to `reader`, in the tree's order. `key` is without its length.
  void readCatalog(const RecordReader& reader);
  void readAttributes(const RecordReader& reader);

  /// The places of a fork's content, in the order of the content. Together they are as long as the fork.
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

/// A fork as it stands in a record, in 80 bytes.
HfsFork readHfsFork(const ImageBytes& bytes);

}  // namespace platform::hdiutil
