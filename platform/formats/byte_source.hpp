#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/foundation/bytes.hpp"
#include "platform/foundation/error.hpp"

namespace platform {

/// Bytes of a known size that are read in pieces.
class ByteSource {
 public:
  ByteSource() = default;
  ByteSource(const ByteSource&) = delete;
  ByteSource(ByteSource&&) = default;
  ByteSource& operator=(const ByteSource&) = delete;
  ByteSource& operator=(ByteSource&&) = delete;
  virtual ~ByteSource() = default;

  virtual std::uint64_t size() const noexcept = 0;

  /// Fills `buffer` from `offset` on. Throws `Error` where there are fewer bytes. Callable from several
  /// threads.
  virtual void readAt(std::uint64_t offset, std::span<char> buffer) const = 0;

  /// `length` bytes from `offset` on. Throws `FormatError` where there are fewer, before it takes the memory.
  std::string read(std::uint64_t offset, std::uint64_t length) const {
    if (!ByteRange{offset, length}.within(size()))
      throw FormatError::truncated("the file");
    std::string bytes(length, '\0');
    readAt(offset, bytes);
    return bytes;
  }
};

}  // namespace platform
