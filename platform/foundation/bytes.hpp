#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

/// `length` bytes, or other units, from `offset` on.
struct ByteRange {
  std::uint64_t offset = 0;
  std::uint64_t length = 0;

  /// True when the range is within the first `size` bytes.
  bool within(std::uint64_t size) const noexcept { return offset <= size && length <= size - offset; }

  bool operator==(const ByteRange&) const = default;
};

inline constexpr std::string_view kLowerCaseDigits = "0123456789abcdef";
inline constexpr std::string_view kUpperCaseDigits = "0123456789ABCDEF";

/// Two hexadecimal digits for each byte.
inline std::string hexadecimal(std::string_view bytes, std::string_view digits = kLowerCaseDigits) {
  std::string text;
  text.reserve(2 * bytes.size());
  for (const char byte : bytes) {
    text += digits[static_cast<std::uint8_t>(byte) >> 4U];
    text += digits[static_cast<std::uint8_t>(byte) & 0xFU];
  }
  return text;
}

/// Big-endian integer of up to eight bytes.
constexpr std::uint64_t bigEndian(std::string_view bytes) noexcept {
  std::uint64_t value = 0;
  for (const char byte : bytes)
    value = value << 8U | static_cast<std::uint8_t>(byte);
  return value;
}

/// Little-endian integer of up to eight bytes.
constexpr std::uint64_t littleEndian(std::string_view bytes) noexcept {
  std::uint64_t value = 0;
  for (std::size_t place = bytes.size(); place > 0; --place)
    value = value << 8U | static_cast<std::uint8_t>(bytes[place - 1]);
  return value;
}

}  // namespace platform
