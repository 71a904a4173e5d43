#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace platform {

/// The `length` bytes from `offset` on; nothing where not all of them lie within `bytes`.
inline std::optional<std::string_view> partOf(std::string_view bytes, std::uint64_t offset,
                                              std::uint64_t length) noexcept {
  if (offset > bytes.size() || length > bytes.size() - offset)
    return std::nullopt;
  return bytes.substr(offset, length);
}

/// At most eight bytes as a number, the greatest first.
constexpr std::uint64_t bigEndian(std::string_view bytes) noexcept {
  std::uint64_t value = 0;
  for (const char byte : bytes)
    value = value << 8U | static_cast<std::uint8_t>(byte);
  return value;
}

/// At most eight bytes as a number, the least first.
constexpr std::uint64_t littleEndian(std::string_view bytes) noexcept {
  std::uint64_t value = 0;
  for (std::size_t place = bytes.size(); place > 0; --place)
    value = value << 8U | static_cast<std::uint8_t>(bytes[place - 1]);
  return value;
}

}  // namespace platform
