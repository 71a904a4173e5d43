#include "platform/foundation/character_set.hpp"
#include "platform/foundation/core_foundation_macos.hpp"
#include "platform/foundation/text.hpp"
#include "platform/foundation/utf8.hpp"

namespace platform {
namespace {

constexpr std::uint32_t kWhitespaceAndNewline = 1U
                                                << static_cast<unsigned>(kCFCharacterSetWhitespaceAndNewline);
constexpr std::uint32_t kDecimalDigit = 1U << static_cast<unsigned>(kCFCharacterSetDecimalDigit);
constexpr std::uint32_t kUppercaseLetter = 1U << static_cast<unsigned>(kCFCharacterSetUppercaseLetter);
constexpr std::uint32_t kAlphaNumeric = 1U << static_cast<unsigned>(kCFCharacterSetAlphaNumeric);

bool isValid(std::string_view text) {
  return allScalars(text, [](char32_t) { return true; });
}

}  // namespace

CharacterSet CharacterSet::uppercaseLetters() {
  CharacterSet set;
  set.categories_ = kUppercaseLetter;
  return set;
}

CharacterSet CharacterSet::decimalDigits() {
  CharacterSet set;
  set.categories_ = kDecimalDigit;
  return set;
}

CharacterSet CharacterSet::alphanumerics() {
  CharacterSet set;
  set.categories_ = kAlphaNumeric;
  return set;
}

CharacterSet CharacterSet::whitespacesAndNewlines() {
  CharacterSet set;
  set.categories_ = kWhitespaceAndNewline;
  return set;
}

bool CharacterSet::contains(char32_t scalar) const {
  // The system's sets are never released: they belong to it.
  const auto isIn = [scalar, this](CFCharacterSetPredefinedSet kind) {
    return (categories_ >> static_cast<unsigned>(kind) & 1U) != 0 &&
           ::CFCharacterSetIsLongCharacterMember(::CFCharacterSetGetPredefined(kind), scalar) != 0;
  };
  return isIn(kCFCharacterSetWhitespaceAndNewline) || isIn(kCFCharacterSetDecimalDigit) ||
         isIn(kCFCharacterSetUppercaseLetter) || isIn(kCFCharacterSetAlphaNumeric) ||
         scalars_.contains(scalar);
}

std::string lowercased(std::string_view text) {
  if (!isValid(text))
    return std::string(text);
  const auto lower = allocated(::CFStringCreateMutableCopy(nullptr, 0, systemString(text).get()));
  ::CFStringLowercase(lower.get(), nullptr);
  return textOf(lower.get()).value_or(std::string(text));
}

bool canonicallyEquivalent(std::string_view left, std::string_view right) {
  if (left == right)
    return true;
  return isValid(left) && isValid(right) &&
         ::CFStringCompare(systemString(left).get(), systemString(right).get(), kCFCompareNonliteral) ==
             kCFCompareEqualTo;
}

}  // namespace platform
