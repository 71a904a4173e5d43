#include "rehearse/findings/dotted_version.hpp"

#include <algorithm>
#include <string>

namespace rehearse {
namespace {

bool isDigit(char character) {
  return character >= '0' && character <= '9';
}

/// Removes and returns the digits at the beginning, without leading zeros.
std::string_view takeNumber(std::string_view& text) {
  const auto* end = std::find_if_not(text.begin(), text.end(), &isDigit);
  std::string_view digits = text.substr(0, static_cast<std::size_t>(end - text.begin()));
  text.remove_prefix(digits.size());
  digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
  return digits;
}

/// Removes and returns what is before the next digit or dot.
std::string_view takeLetters(std::string_view& text) {
  const auto* end = std::find_if(text.begin(), text.end(),
                                 [](char character) { return isDigit(character) || character == '.'; });
  const std::string_view letters = text.substr(0, static_cast<std::size_t>(end - text.begin()));
  text.remove_prefix(letters.size());
  return letters;
}

std::weak_ordering compareNumbers(std::string_view one, std::string_view other) {
  if (one.size() != other.size())
    return one.size() <=> other.size();
  return one.compare(other) <=> 0;
}

/// Letters come before none: "2.0b" is on the way to "2.0".
std::weak_ordering compareLetters(std::string_view one, std::string_view other) {
  if (one.empty() || other.empty())
    return other.size() <=> one.size();
  return one.compare(other) <=> 0;
}

void takeDot(std::string_view& text) {
  if (text.starts_with('.'))
    text.remove_prefix(1);
}

}  // namespace

std::weak_ordering compareVersions(std::string_view one, std::string_view other) {
  while (!one.empty() || !other.empty()) {
    if (const auto order = compareNumbers(takeNumber(one), takeNumber(other)); std::is_neq(order))
      return order;
    if (const auto order = compareLetters(takeLetters(one), takeLetters(other)); std::is_neq(order))
      return order;
    takeDot(one);
    takeDot(other);
  }
  return std::weak_ordering::equivalent;
}

}  // namespace rehearse
