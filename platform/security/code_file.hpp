#pragma once

#include <cstdint>
#include <string>

#include "platform/files/directory.hpp"
#include "platform/formats/byte_source.hpp"

namespace platform {

/// A regular file that is held open: reads are of that file, whatever happens to its name. Failures are
/// `SystemError`.
class CodeFile : public ByteSource {
 public:
  /// Refuses anything but a regular file.
  explicit CodeFile(const Entry& entry);

  std::uint64_t size() const noexcept override { return status_.size; }
  void readAt(std::uint64_t offset, std::span<char> buffer) const override;
  /// The whole content. Throws `Error` when that is more than `limit` bytes.
  std::string content(std::uint64_t limit) const;

  const std::string& path() const noexcept { return path_; }
  const ItemStatus& status() const noexcept { return status_; }
  const FileDescriptor& descriptor() const noexcept { return descriptor_; }

 private:
  FileDescriptor descriptor_;
  std::string path_;
  ItemStatus status_;
};

}  // namespace platform
