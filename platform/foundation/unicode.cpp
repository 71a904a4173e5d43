// What needs the tables of the Unicode Character Database.

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <initializer_list>
#include <memory>

#include "platform/foundation/bytes.hpp"
#include "platform/foundation/character_set.hpp"
#include "platform/foundation/text.hpp"

namespace platform {
namespace {

std::uint32_t maskOf(std::initializer_list<utf8proc_category_t> categories) {
  std::uint32_t mask = 0;
  for (const auto category : categories)
    mask |= 1U << static_cast<unsigned>(category);
  return mask;
}

struct Free {
  void operator()(utf8proc_uint8_t* buffer) const noexcept { std::free(buffer); }
};

const utf8proc_uint8_t* bytesOf(std::string_view text) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): utf8proc reads unsigned bytes
  return reinterpret_cast<const utf8proc_uint8_t*>(text.data());
}

std::optional<std::string> decomposition(std::string_view text, unsigned more = 0) {
  utf8proc_uint8_t* raw = nullptr;
  const auto length =
      utf8proc_map(bytesOf(text), static_cast<utf8proc_ssize_t>(text.size()), &raw,
                   static_cast<utf8proc_option_t>(UTF8PROC_DECOMPOSE | UTF8PROC_STABLE | more));
  const std::unique_ptr<utf8proc_uint8_t, Free> buffer(raw);
  if (length < 0)
    return std::nullopt;
  return std::string(buffer.get(), buffer.get() + length);
}

}  // namespace

CharacterSet CharacterSet::uppercaseLetters() {
  CharacterSet set;
  set.categories_ = maskOf({UTF8PROC_CATEGORY_LU, UTF8PROC_CATEGORY_LT});
  return set;
}

CharacterSet CharacterSet::decimalDigits() {
  CharacterSet set;
  set.categories_ = maskOf({UTF8PROC_CATEGORY_ND});
  return set;
}

CharacterSet CharacterSet::alphanumerics() {
  CharacterSet set;
  set.categories_ =
      maskOf({UTF8PROC_CATEGORY_LU, UTF8PROC_CATEGORY_LL, UTF8PROC_CATEGORY_LT, UTF8PROC_CATEGORY_LM,
              UTF8PROC_CATEGORY_LO, UTF8PROC_CATEGORY_MN, UTF8PROC_CATEGORY_MC, UTF8PROC_CATEGORY_ME,
              UTF8PROC_CATEGORY_ND, UTF8PROC_CATEGORY_NL, UTF8PROC_CATEGORY_NO});
  return set;
}

CharacterSet CharacterSet::whitespacesAndNewlines() {
  CharacterSet set = charactersIn("\t\n\v\f\r");
  set.categories_ = maskOf({UTF8PROC_CATEGORY_ZS, UTF8PROC_CATEGORY_ZL, UTF8PROC_CATEGORY_ZP});
  set.scalars_.insert(U'\u0085');
  return set;
}

bool CharacterSet::contains(char32_t scalar) const {
  const auto category = utf8proc_category(static_cast<utf8proc_int32_t>(scalar));
  return (categories_ >> static_cast<unsigned>(category) & 1U) != 0 || scalars_.contains(scalar);
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
  return decomposition(text).value_or(std::string(text));
}

std::string caseFolded(std::string_view text) {
  return decomposition(text, UTF8PROC_CASEFOLD).value_or(std::string(text));
}

bool canonicallyEquivalent(std::string_view left, std::string_view right) {
  if (left == right)
    return true;
  const auto decomposedLeft = decomposition(left);
  const auto decomposedRight = decomposition(right);
  return decomposedLeft && decomposedRight && *decomposedLeft == *decomposedRight;
}

}  // namespace platform
