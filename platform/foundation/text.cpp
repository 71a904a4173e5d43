#include "platform/foundation/text.hpp"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <vector>

#include "platform/foundation/bytes.hpp"

namespace platform {
namespace {

struct Free {
  void operator()(utf8proc_uint8_t* buffer) const noexcept { std::free(buffer); }
};

const utf8proc_uint8_t* bytesOf(std::string_view text) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): utf8proc reads unsigned bytes
  return reinterpret_cast<const utf8proc_uint8_t*>(text.data());
}

std::optional<std::string> canonicalDecomposition(std::string_view text) {
  utf8proc_uint8_t* raw = nullptr;
  const auto length = utf8proc_map(bytesOf(text), static_cast<utf8proc_ssize_t>(text.size()), &raw,
                                   static_cast<utf8proc_option_t>(UTF8PROC_DECOMPOSE | UTF8PROC_STABLE));
  const std::unique_ptr<utf8proc_uint8_t, Free> buffer(raw);
  if (length < 0)
    return std::nullopt;
  return std::string(buffer.get(), buffer.get() + length);
}

}  // namespace

std::optional<std::string> stringFromUTF8(std::string_view bytes) {
  if (!allScalars(bytes, [](char32_t) { return true; }))
    return std::nullopt;
  return std::string(bytes);
}

std::optional<std::string> stringFromUTF16(std::string_view bytes) {
  std::string text;
  const auto isSurrogate = [](std::uint64_t unit) { return unit >= 0xD800 && unit < 0xE000; };
  while (!bytes.empty()) {
    std::uint64_t scalar = bigEndian(bytes.substr(0, 2));
    const std::uint64_t next = bigEndian(bytes.substr(std::min<std::size_t>(bytes.size(), 2), 2));
    const bool isPair = isSurrogate(scalar) && scalar < 0xDC00 && isSurrogate(next) && next >= 0xDC00;
    if (bytes.size() < 2 || (isSurrogate(scalar) && !isPair))
      return std::nullopt;
    if (isPair)
      scalar = 0x10000 + ((scalar - 0xD800) << 10U) + (next - 0xDC00);
    std::array<utf8proc_uint8_t, 4> encoded{};
    const auto length = utf8proc_encode_char(static_cast<utf8proc_int32_t>(scalar), encoded.data());
    text.append(encoded.begin(), encoded.begin() + length);
    bytes.remove_prefix(isPair ? 4 : 2);
  }
  return text;
}

std::string trimmingCharactersIn(std::string_view text, const CharacterSet& set) {
  std::size_t position = 0;
  std::size_t first = std::string_view::npos;
  std::size_t end = 0;
  while (position < text.size()) {
    utf8proc_int32_t scalar = 0;
    const auto length = utf8proc_iterate(bytesOf(text.substr(position)),
                                         static_cast<utf8proc_ssize_t>(text.size() - position), &scalar);
    const std::size_t next = position + (length > 0 ? static_cast<std::size_t>(length) : 1);
    if (length <= 0 || !set.contains(static_cast<char32_t>(scalar))) {
      if (first == std::string_view::npos)
        first = position;
      end = next;
    }
    position = next;
  }
  return first == std::string_view::npos ? std::string() : std::string(text.substr(first, end - first));
}

std::string lowercased(std::string_view text) {
  std::string lower;
  lower.reserve(text.size());
  const bool valid = allScalars(text, [&](char32_t scalar) {
    std::array<utf8proc_uint8_t, 4> encoded{};
    const auto length =
        utf8proc_encode_char(utf8proc_tolower(static_cast<utf8proc_int32_t>(scalar)), encoded.data());
    lower.append(encoded.begin(), encoded.begin() + length);
    return true;
  });
  return valid ? lower : std::string(text);
}

std::string canonicallyDecomposed(std::string_view text) {
  return canonicalDecomposition(text).value_or(std::string(text));
}

bool canonicallyEquivalent(std::string_view left, std::string_view right) {
  if (left == right)
    return true;
  const auto decomposedLeft = canonicalDecomposition(left);
  const auto decomposedRight = canonicalDecomposition(right);
  return decomposedLeft && decomposedRight && *decomposedLeft == *decomposedRight;
}

}  // namespace platform
