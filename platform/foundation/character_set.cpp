#include "platform/foundation/character_set.hpp"

#include <utf8proc.h>

#include <initializer_list>

namespace platform {
namespace {

std::uint32_t maskOf(std::initializer_list<utf8proc_category_t> categories) {
  std::uint32_t mask = 0;
  for (const auto category : categories)
    mask |= 1U << static_cast<unsigned>(category);
  return mask;
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

CharacterSet CharacterSet::charactersIn(std::string_view ascii) {
  CharacterSet set;
  for (const char character : ascii)
    set.scalars_.insert(static_cast<char32_t>(static_cast<unsigned char>(character)));
  return set;
}

CharacterSet CharacterSet::unionWith(const CharacterSet& other) const {
  CharacterSet set = *this;
  set.categories_ |= other.categories_;
  set.scalars_.insert(other.scalars_.begin(), other.scalars_.end());
  return set;
}

bool CharacterSet::contains(char32_t scalar) const {
  const auto category = utf8proc_category(static_cast<utf8proc_int32_t>(scalar));
  return (categories_ >> static_cast<unsigned>(category) & 1U) != 0 || scalars_.contains(scalar);
}

bool allScalars(std::string_view text, const std::function<bool(char32_t)>& predicate) {
  while (!text.empty()) {
    utf8proc_int32_t scalar = 0;
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): utf8proc reads unsigned bytes
    const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                         static_cast<utf8proc_ssize_t>(text.size()), &scalar);
    if (length <= 0 || !predicate(static_cast<char32_t>(scalar)))
      return false;
    text.remove_prefix(static_cast<std::size_t>(length));
  }
  return true;
}

}  // namespace platform
