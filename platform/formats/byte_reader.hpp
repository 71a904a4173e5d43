#pragma once

#include <bit>
#include <cstdint>
#include <string_view>

#include "platform/foundation/bytes.hpp"
#include "platform/foundation/error.hpp"

namespace platform {

using ByteOrder = std::endian;

/// Reads numbers and spans of untrusted bytes: at an offset or, with the operations called `read...`, at a
/// position that advances. Throws `failure(item)` for a range that is not within the bytes.
template <auto failure>
class BasicByteReader {
 public:
  /// `bytes` and `item`, the name of the item in a clause, must outlive the reader.
  BasicByteReader(std::string_view bytes, std::string_view item, ByteOrder order = ByteOrder::big) noexcept
      : bytes_(bytes), item_(item), order_(order) {}

  std::uint64_t size() const noexcept { return bytes_.size(); }
  std::uint64_t position() const noexcept { return position_; }

  std::string_view bytes(std::uint64_t offset, std::uint64_t length) const {
    if (!ByteRange{offset, length}.within(size()))
      refuse();
    return bytes_.substr(offset, length);
  }
  std::string_view bytesFrom(std::uint64_t offset) const {
    bytes(offset, 0);
    return bytes_.substr(offset);
  }
  bool startsWith(std::uint64_t offset, std::string_view text) const {
    return offset <= size() && bytes_.substr(offset).starts_with(text);
  }
  /// A reader of these bytes alone, with the same item and byte order.
  BasicByteReader part(std::uint64_t offset, std::uint64_t length) const {
    return {bytes(offset, length), item_, order_};
  }

  /// A number of `length` bytes, up to eight.
  std::uint64_t number(std::uint64_t offset, std::uint64_t length) const {
    const std::string_view field = bytes(offset, length);
    return order_ == ByteOrder::big ? bigEndian(field) : littleEndian(field);
  }
  std::uint8_t u8(std::uint64_t offset) const { return static_cast<std::uint8_t>(number(offset, 1)); }
  std::uint16_t u16(std::uint64_t offset) const { return static_cast<std::uint16_t>(number(offset, 2)); }
  std::uint32_t u32(std::uint64_t offset) const { return static_cast<std::uint32_t>(number(offset, 4)); }
  std::uint64_t u64(std::uint64_t offset) const { return number(offset, 8); }

  std::uint8_t readU8() { return static_cast<std::uint8_t>(readNumber(1)); }
  std::uint32_t readU32() { return static_cast<std::uint32_t>(readNumber(4)); }
  std::uint64_t readU64() { return readNumber(8); }
  std::uint64_t readNumber(std::uint64_t length) { return number(advance(length), length); }
  std::string_view readBytes(std::uint64_t length) { return bytes(advance(length), length); }
  void skip(std::uint64_t length) { advance(length); }

  /// Throws the failure, for an item that contradicts itself.
  [[noreturn]] void refuse() const { throw failure(item_); }

 private:
  /// Returns the position before the bytes.
  std::uint64_t advance(std::uint64_t length) {
    bytes(position_, length);
    position_ += length;
    return position_ - length;
  }

  std::string_view bytes_;
  std::string_view item_;
  ByteOrder order_;
  std::uint64_t position_ = 0;
};

using ByteReader = BasicByteReader<&FormatError::truncated>;

}  // namespace platform
