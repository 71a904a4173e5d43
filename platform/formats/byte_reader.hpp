#pragma once

#include <cstdint>
#include <string_view>

namespace platform {

enum class ByteOrder { big, little };

/// Reads numbers and spans out of untrusted bytes, from the front on. Whatever would lie outside of them is a
/// `FormatError` that names the item.
class ByteReader {
 public:
  /// `bytes` and `item` outlive the reader.
  ByteReader(std::string_view bytes, std::string_view item, ByteOrder order = ByteOrder::big) noexcept
      : bytes_(bytes), item_(item), order_(order) {}

  std::uint8_t readUInt8() { return static_cast<std::uint8_t>(read(1)); }
  std::uint32_t readUInt32() { return static_cast<std::uint32_t>(read(4)); }
  std::uint64_t readUInt64() { return read(8); }
  std::string_view readBytes(std::uint64_t count);
  void skip(std::uint64_t count) { readBytes(count); }

  /// `length` bytes from `offset` on, counted from the first byte of all.
  std::string_view bytesAt(std::uint64_t offset, std::uint64_t length) const;

  /// The text from `offset` up to its null byte.
  std::string_view textAt(std::uint64_t offset) const;

  std::uint64_t position() const noexcept { return position_; }

 private:
  std::uint64_t read(std::uint64_t count);

  std::string_view bytes_;
  std::string_view item_;
  ByteOrder order_;
  std::uint64_t position_ = 0;
};

}  // namespace platform
