#pragma once

#include <cstdint>
#include <string>

#include "platform/files/directory.hpp"
#include "platform/formats/byte_source.hpp"

namespace platform {

/// An open regular file: reads are from that file even if it is renamed or replaced meanwhile. Several
/// threads may read at once. Failures are `SystemError`; `Error` when the file was truncated meanwhile.
class CodeFile : public ByteSource {
 public:
  /// Rejects anything but a regular file. The size is that of this moment.
  explicit CodeFile(const Entry& entry);

  std::uint64_t size() const noexcept override { return status_.size; }
  void readAt(std::uint64_t offset, std::span<char> buffer) const override;
  /// The whole content. Throws `Error` when it is longer than `limit` bytes.
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
