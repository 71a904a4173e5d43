#include "platform/foundation/text.hpp"

#include <gtest/gtest.h>

#include "platform/foundation/error.hpp"

using platform::canonicallyEquivalent;
using platform::stringFromUTF8;

namespace {

TEST(TextTest, OnlyValidUTF8IsText) {
  for (const char* text : {"", "plain", "\xC3\xA9", "\xF0\x9F\x98\x80", "\xEF\xBB\xBFmarked"})
    EXPECT_EQ(stringFromUTF8(text), text);
  for (const char* bytes : {"\xFF", "\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "a\x80"})
    EXPECT_FALSE(stringFromUTF8(bytes)) << bytes;
  EXPECT_EQ(stringFromUTF8(std::string("a\0b", 3)), std::string("a\0b", 3));
}

TEST(TextTest, ANameInASentenceCannotBreakOutOfIt) {
  const std::pair<std::string, std::string> cases[] = {
      {"caf\xC3\xA9 \xF0\x9F\x98\x80 \"x\"", "caf\xC3\xA9 \xF0\x9F\x98\x80 \"x\""},
      {"a\n\x1B[2J\x7F", "a\\x0A\\x1B[2J\\x7F"},
      {"\xC2\x85\xE2\x80\xA8\xE2\x80\xAE", "\\xC2\\x85\\xE2\\x80\\xA8\\xE2\\x80\\xAE"},
      {"\xE2\x81\xA6\xE2\x81\xA9", "\\xE2\\x81\\xA6\\xE2\\x81\\xA9"},
      {std::string("\0\xFF", 2), "\\x00\\xFF"}};
  for (const auto& [name, shown] : cases)
    EXPECT_EQ(platform::quoted(name), '"' + shown + '"');
}

TEST(TextTest, EqualityIsCanonicalEquivalence) {
  EXPECT_TRUE(canonicallyEquivalent("caf\xC3\xA9", "cafe\xCC\x81"));
  EXPECT_TRUE(canonicallyEquivalent("a\xCC\xA3\xCC\x81", "a\xCC\x81\xCC\xA3"));    // marks in either order
  EXPECT_TRUE(canonicallyEquivalent("\xEA\xB0\x80", "\xE1\x84\x80\xE1\x85\xA1"));  // Hangul
  EXPECT_TRUE(canonicallyEquivalent("\xFF", "\xFF"));
  const std::string one("a\0b", 3);
  const std::string other("a\0c", 3);
  for (const auto& [left, right] : {std::pair<std::string, std::string>("\xEF\xAC\x81", "fi"),
                                    {"1.0", "1.0 "},
                                    {"a", "A"},
                                    {one, other},
                                    {"\xFF", "\xFE"}})
    EXPECT_FALSE(canonicallyEquivalent(left, right)) << left;
}

}  // namespace
