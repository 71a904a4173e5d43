#include "platform/foundation/character_set.hpp"

#include "platform/foundation/utf8.hpp"

namespace platform {

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

bool allScalars(std::string_view text, const std::function<bool(char32_t)>& predicate) {
  while (!text.empty()) {
    const auto first = firstScalar(text);
    if (!first || !predicate(first->scalar))
      return false;
    text.remove_prefix(first->length);
  }
  return true;
}

}  // namespace platform
