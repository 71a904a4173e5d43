#include "platform/foundation/utf8.hpp"

#include <bit>
#include <cstdint>

namespace platform {
namespace {

/// The least scalar that needs this many bytes; less in the same number is an overlong form.
char32_t leastScalar(std::size_t length) {
  return length == 2 ? 0x80 : length == 3 ? 0x800 : 0x10000;
}

}  // namespace

std::optional<EncodedScalar> firstScalar(std::string_view text) noexcept {
  if (text.empty())
    return std::nullopt;
  const auto first = static_cast<std::uint8_t>(text.front());
  if (first < 0x80)
    return EncodedScalar{first, 1};
  const auto length = static_cast<std::size_t>(std::countl_one(first));
  if (length < 2 || length > 4 || text.size() < length)
    return std::nullopt;
  char32_t scalar = first & (0x7FU >> length);
  for (const char next : text.substr(1, length - 1)) {
    const auto byte = static_cast<std::uint8_t>(next);
    if ((byte & 0xC0U) != 0x80)
      return std::nullopt;
    scalar = scalar << 6U | (byte & 0x3FU);
  }
  const bool isSurrogate = scalar >= 0xD800 && scalar < 0xE000;
  if (scalar < leastScalar(length) || scalar > 0x10FFFF || isSurrogate)
    return std::nullopt;
  return EncodedScalar{scalar, length};
}

}  // namespace platform
