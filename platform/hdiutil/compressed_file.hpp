#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "platform/files/file_descriptor.hpp"

namespace platform::hdiutil {

/// Where a resource fork stands in a file.
struct StoredFork {
  const FileDescriptor& file;
  std::uint64_t offset;
  std::uint64_t size;
};

/// The attribute "com.apple.decmpfs" of a file that the file system has compressed: a header of 16 bytes,
/// little-endian ("fpmc", the kind of compression, the size), and for small files the content.
class CompressedFile {
 public:
  /// Throws `ImageError` for a damaged header, and for a kind of compression that cannot be undone here.
  explicit CompressedFile(std::string attribute);

  std::uint64_t size() const noexcept { return size_; }
  /// True when the content lies in the resource fork, else it lies in the attribute.
  bool usesResourceFork() const noexcept { return usesResourceFork_; }

  /// Hands out the content in parts, in order. `resourceFork` is looked at only when it is used. Throws
  /// `ImageError` unless the content is whole and has the size that the header promises.
  void unpack(const StoredFork& resourceFork, const std::function<void(std::string_view)>& consumer) const;

 private:
  std::string attribute_;
  std::uint64_t size_ = 0;
  bool usesResourceFork_ = false;
  bool isPlain_ = false;
};

}  // namespace platform::hdiutil
