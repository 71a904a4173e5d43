#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace platform {

/// Bytes of a known number that are read in pieces.
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

  /// `length` bytes from `offset` on; the memory is taken only when the source holds them.
  std::string read(std::uint64_t offset, std::uint64_t length) const;
};

/// A range of bytes, from `offset` on.
struct ByteRange {
  std::uint64_t offset = 0;
  std::uint64_t length = 0;

  /// True when the range lies within the first `size` bytes.
  bool within(std::uint64_t size) const noexcept { return offset <= size && length <= size - offset; }

  bool operator==(const ByteRange&) const = default;
};

}  // namespace platform
