#include "platform/foundation/text.hpp"

#include <gtest/gtest.h>

#include "platform/foundation/error.hpp"

using platform::canonicallyEquivalent;
using platform::CharacterSet;
using platform::Data;
using platform::lowercased;
using platform::stringFromUTF8;
using platform::trimmingCharactersIn;

namespace {

TEST(TextTest, OnlyValidUTF8IsText) {
  for (const char* text : {"", "plain", "\xC3\xA9", "\xF0\x9F\x98\x80", "\xEF\xBB\xBFmarked"})
    EXPECT_EQ(stringFromUTF8(Data(text)), text);
  for (const char* bytes : {"\xFF", "\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "a\x80"})
    EXPECT_FALSE(stringFromUTF8(Data(bytes))) << bytes;
  EXPECT_EQ(stringFromUTF8(Data(std::string("a\0b", 3))), std::string("a\0b", 3));
}

TEST(TextTest, ANameInASentenceCannotBreakOutOfIt) {
  const std::pair<std::string, std::string> cases[] = {
      {"caf\xC3\xA9 \xF0\x9F\x98\x80 \"x\"", "caf\xC3\xA9 \xF0\x9F\x98\x80 \"x\""},
      {"a\n\x1B[2J\x7F", "a\\x0A\\x1B[2J\\x7F"},
      {"\xC2\x85\xE2\x80\xA8\xE2\x80\xAE", "\\xC2\\x85\\xE2\\x80\\xA8\\xE2\\x80\\xAE"},
      {std::string("\0\xFF", 2), "\\x00\\xFF"}};
  for (const auto& [name, shown] : cases)
    EXPECT_EQ(platform::quoted(name), '"' + shown + '"');
}

TEST(TextTest, TrimsWhiteSpaceOfAllKindsAtBothEndsOnly) {
  const auto trim = [](std::string_view text) {
    return trimmingCharactersIn(text, CharacterSet::whitespacesAndNewlines());
  };
  EXPECT_EQ(trim(" \t\r\n a \n b \v\f"), "a \n b");
  EXPECT_EQ(trim("\xC2\xA0\xE2\x80\xA8\xC2\x85x\xE3\x80\x80"), "x");
  EXPECT_EQ(trim(" \n "), "");
  EXPECT_EQ(trim(""), "");
  EXPECT_EQ(trim(" \xFF "), "\xFF");
}

TEST(TextTest, LowersEveryCharacterThatHasALowerCase) {
  EXPECT_EQ(lowercased("0AbCdEf"), "0abcdef");
  EXPECT_EQ(lowercased("\xC3\x84PP"), "\xC3\xA4pp");
  EXPECT_EQ(lowercased("A\xFF"), "A\xFF");
}

TEST(TextTest, EqualityIsCanonicalEquivalence) {
  EXPECT_TRUE(canonicallyEquivalent("caf\xC3\xA9", "cafe\xCC\x81"));
  EXPECT_TRUE(canonicallyEquivalent("\xE2\x84\xAA", "K"));                         // the Kelvin sign
  EXPECT_TRUE(canonicallyEquivalent("a\xCC\xA3\xCC\x81", "a\xCC\x81\xCC\xA3"));    // marks in either order
  EXPECT_TRUE(canonicallyEquivalent("\xEA\xB0\x80", "\xE1\x84\x80\xE1\x85\xA1"));  // Hangul
  EXPECT_FALSE(canonicallyEquivalent("\xEF\xAC\x81", "fi"));                       // a ligature is its own
  EXPECT_FALSE(canonicallyEquivalent("1.0", "1.0 "));
  EXPECT_FALSE(canonicallyEquivalent("a", "A"));
  EXPECT_FALSE(canonicallyEquivalent(std::string_view("a\0b", 3), std::string_view("a\0c", 3)));
  EXPECT_TRUE(canonicallyEquivalent("\xFF", "\xFF"));
  EXPECT_FALSE(canonicallyEquivalent("\xFF", "\xFE"));
}

TEST(TextTest, CharacterSetsHoldWholeCategories) {
  const CharacterSet team = CharacterSet::uppercaseLetters().unionWith(CharacterSet::decimalDigits());
  for (const char32_t scalar : {U'A', U'0', U'\u00C4', U'\u01C5', U'\u0663'})
    EXPECT_TRUE(team.contains(scalar)) << static_cast<unsigned>(scalar);
  for (const char32_t scalar : {U'a', U' ', U'"', U'\u00AA', U'\u2160', U'\u00B2'})
    EXPECT_FALSE(team.contains(scalar)) << static_cast<unsigned>(scalar);
  const CharacterSet identifier = CharacterSet::alphanumerics().unionWith(CharacterSet::charactersIn(".-_"));
  for (const char32_t scalar : {U'z', U'.', U'-', U'_', U'\u0301', U'\u00B2', U'\u2160'})
    EXPECT_TRUE(identifier.contains(scalar)) << static_cast<unsigned>(scalar);
  for (const char32_t scalar : {U' ', U'"', U'\\', U'/'})
    EXPECT_FALSE(identifier.contains(scalar)) << static_cast<unsigned>(scalar);
}

}  // namespace
