#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace tools {

/// Overwrites the bytes from `offset` on with `value`; throws `std::out_of_range` past the end.
template <std::unsigned_integral Number>
void putNumber(std::string& bytes, std::size_t offset, Number value, std::endian order) {
  for (std::size_t index = 0; index < sizeof(Number); ++index) {
    const std::size_t place = order == std::endian::big ? sizeof(Number) - 1 - index : index;
    bytes.at(offset + place) = static_cast<char>(static_cast<unsigned char>(value >> (8 * index)));
  }
}

constexpr std::uint64_t alignedUp(std::uint64_t value, std::uint64_t alignment) {
  return (value + alignment - 1) / alignment * alignment;
}

/// Appends numbers and bytes in one byte order.
class ByteWriter {
 public:
  explicit ByteWriter(std::endian order = std::endian::big) : order_(order) {}

  ByteWriter& u8(std::uint8_t value) { return number(value); }
  ByteWriter& u32(std::uint32_t value) { return number(value); }
  ByteWriter& u64(std::uint64_t value) { return number(value); }
  /// 64 bits if `wide`, otherwise the lower 32.
  ByteWriter& word(std::uint64_t value, bool wide) {
    return wide ? u64(value) : u32(static_cast<std::uint32_t>(value));
  }

  ByteWriter& raw(std::string_view bytes) {
    bytes_ += bytes;
    return *this;
  }

  ByteWriter& zeros(std::size_t count) {
    bytes_.append(count, '\0');
    return *this;
  }
  ByteWriter& zerosUpTo(std::size_t size) {
    return size > bytes_.size() ? zeros(size - bytes_.size()) : *this;
  }

  /// The bytes, truncated or padded with zeros to `width`.
  ByteWriter& field(std::string_view bytes, std::size_t width) {
    const std::string_view kept = bytes.substr(0, width);
    return raw(kept).zeros(width - kept.size());
  }

  std::size_t size() const { return bytes_.size(); }
  const std::string& bytes() const& { return bytes_; }
  std::string bytes() && { return std::move(bytes_); }

 private:
  template <std::unsigned_integral Number>
  ByteWriter& number(Number value) {
    zeros(sizeof(Number));
    putNumber(bytes_, bytes_.size() - sizeof(Number), value, order_);
    return *this;
  }

  std::endian order_;
  std::string bytes_;
};

}  // namespace tools
