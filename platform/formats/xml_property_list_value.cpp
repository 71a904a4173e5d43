#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <limits>
#include <utility>

#include "platform/formats/xml_property_list.hpp"

namespace platform {
namespace {

constexpr std::string_view kWhitespace = " \t\r\n";

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = std::min(text.find_first_not_of(kWhitespace), text.size());
  return text.substr(begin, text.find_last_not_of(kWhitespace) + 1 - begin);
}

[[noreturn]] void refuse(std::string_view kind) {
  throw PropertyListError::invalid("one of its values is not " + std::string(kind));
}

/// The whole of `text` as a number.
template <typename Number, typename... Form>
bool parse(std::string_view text, Number& number, Form... form) {
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number, form...);
  return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

PropertyList integerValue(std::string_view text) {
  text = trimmed(text);
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+'))
    text.remove_prefix(1);
  const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (isHexadecimal)
    text.remove_prefix(2);
  std::uint64_t magnitude = 0;
  if (!parse(text, magnitude, isHexadecimal ? 16 : 10))
    refuse("an integer");
  constexpr auto kGreatest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  if (magnitude > kGreatest + (isNegative ? 1 : 0))
    return PropertyList::other();
  return PropertyList(static_cast<std::int64_t>(isNegative ? -magnitude : magnitude));
}

PropertyList realValue(std::string_view text) {
  text = trimmed(text);
  if (text.starts_with('+'))
    text.remove_prefix(1);
  double number = 0;
  if (!parse(text, number))
    refuse("a real number");
  return PropertyList(number);
}

/// A date reads like "2026-01-31T23:59:59Z".
PropertyList dateValue(std::string_view text) {
  constexpr std::string_view kForm = "0000-00-00T00:00:00Z";
  const bool matches = std::ranges::equal(trimmed(text), kForm, [](char character, char form) {
    return form == '0' ? character >= '0' && character <= '9' : character == form;
  });
  if (!matches)
    refuse("a date");
  return PropertyList::other();
}

/// The value of each base 64 digit (RFC 4648); 64 for all other characters.
constexpr std::array<std::uint8_t, 256> kBase64Digits = [] {
  std::array<std::uint8_t, 256> digits{};
  digits.fill(64);
  std::uint8_t digit = 0;
  for (const char character :
       std::string_view("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"))
    digits[static_cast<std::uint8_t>(character)] = digit++;
  return digits;
}();

/// Base 64 with white space anywhere; the padding may be missing.
PropertyList dataValue(std::string_view text) {
  std::string bytes;
  std::uint32_t bits = 0;
  std::size_t digits = 0;
  std::size_t padding = 0;
  for (const char character : text) {
    const std::uint8_t digit = kBase64Digits[static_cast<std::uint8_t>(character)];
    if (digit < 64 && padding == 0) {
      bits = bits << 6U | digit;
      const std::size_t position = digits++ % 4;
      if (position > 0)
        bytes += static_cast<char>(bits >> (6 - 2 * position) & 0xFFU);
    } else if (character == '=') {
      ++padding;
    } else if (kWhitespace.find(character) == std::string_view::npos) {
      refuse("valid base 64");
    }
  }
  const bool isWhole = digits % 4 != 1 && (padding == 0 || (padding <= 2 && (digits + padding) % 4 == 0));
  if (!isWhole)
    refuse("valid base 64");
  return PropertyList(Data(std::move(bytes)));
}

PropertyList truthValue(std::string_view text, bool value) {
  if (!trimmed(text).empty())
    refuse("a truth value");
  return PropertyList(value);
}

}  // namespace

PropertyList xmlPropertyListValue(std::string_view name, std::string text) {
  if (name == "string")
    return {std::move(text)};
  if (name == "integer")
    return integerValue(text);
  if (name == "real")
    return realValue(text);
  if (name == "date")
    return dateValue(text);
  if (name == "data")
    return dataValue(text);
  return truthValue(text, name == "true");
}

}  // namespace platform
