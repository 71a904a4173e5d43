#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string_view>

namespace platform {

/// A set of Unicode scalars: whole general categories and single scalars.
class CharacterSet {
 public:
  /// General categories Lu and Lt.
  static CharacterSet uppercaseLetters();
  /// General category Nd.
  static CharacterSet decimalDigits();
  /// General categories L*, M* and N*.
  static CharacterSet alphanumerics();
  /// General categories Z*, the tab, and the line ends U+000A to U+000D and U+0085.
  static CharacterSet whitespacesAndNewlines();
  /// The characters of an ASCII string.
  static CharacterSet charactersIn(std::string_view ascii);

  CharacterSet unionWith(const CharacterSet& other) const;

  bool contains(char32_t scalar) const;

 private:
  std::uint32_t categories_ = 0;
  std::set<char32_t> scalars_;
};

/// True if `text` is valid UTF-8 and `predicate`, called in order, is true for each of its scalars.
bool allScalars(std::string_view text, const std::function<bool(char32_t)>& predicate);

}  // namespace platform
