#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/foundation/bytes.hpp"
#include "platform/foundation/error.hpp"

namespace platform {

/// Random access to a known number of bytes, such as those of a file.
class ByteSource {
 public:
  ByteSource() = default;
  ByteSource(const ByteSource&) = delete;
  ByteSource(ByteSource&&) = default;
  ByteSource& operator=(const ByteSource&) = delete;
  ByteSource& operator=(ByteSource&&) = delete;
  virtual ~ByteSource() = default;

  virtual std::uint64_t size() const noexcept = 0;

  /// Fills `buffer` with the bytes from `offset` on. Throws `Error` if there are fewer. Several threads may
  /// read at the same time.
  virtual void readAt(std::uint64_t offset, std::span<char> buffer) const = 0;

  /// Returns `length` bytes from `offset` on. Throws `FormatError` if there are fewer, before it allocates.
  std::string read(std::uint64_t offset, std::uint64_t length) const {
    if (!ByteRange{offset, length}.within(size()))
      throw FormatError::truncated("the file");
    std::string bytes(length, '\0');
    readAt(offset, bytes);
    return bytes;
  }
};

}  // namespace platform
