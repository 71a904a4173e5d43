#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/files/file_descriptor.hpp"
#include "platform/hdiutil/hfs_plus_catalog.hpp"
#include "platform/hdiutil/hfs_plus_volume.hpp"

namespace platform::hdiutil {

/// A resource fork that is stored in a file.
struct StoredFork {
  const FileDescriptor& file;
  std::uint64_t offset;
  std::uint64_t size;
};

/// A file that the file system has compressed, as its attribute "com.apple.decmpfs" describes it: a
/// little-endian header of 16 bytes ("fpmc", the kind of compression, the size), followed by the content of
/// small files.
class CompressedFile {
 public:
  /// Throws `ImageError` for a damaged header and for an unsupported kind of compression.
  explicit CompressedFile(std::string attribute);

  /// Of the unpacked content, in bytes.
  std::uint64_t size() const noexcept { return size_; }
  /// True when the content is in the resource fork; otherwise it is in the attribute.
  bool usesResourceFork() const noexcept { return usesResourceFork_; }

  /// Passes the unpacked content to `consumer` in parts, in order. Reads `resourceFork` only when it contains
  /// the content. Throws `ImageError` unless the content is complete and has the size that the header states.
  void unpack(const StoredFork& resourceFork, const std::function<void(std::string_view)>& consumer) const;

 private:
  std::string attribute_;
  std::uint64_t size_ = 0;
  bool usesResourceFork_ = false;
  bool isPlain_ = false;
};

/// The compressed files of a volume by their identifiers.
using CompressedFiles = std::unordered_map<std::uint32_t, CompressedFile>;

/// Reads the attributes of the compressed files among `entries`. Throws `ImageError`.
CompressedFiles readCompressedFiles(HfsPlusVolume& volume, const std::vector<HfsEntry>& entries);

}  // namespace platform::hdiutil
