#include "platform/security/resource_seal.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "platform/security/security_error.hpp"

namespace {

using platform::ResourceSeal;

std::string sealOf(const std::string& files, const std::string& rules) {
  return R"(<plist version="1.0"><dict><key>files2</key>)" + files + "<key>rules2</key>" + rules +
         "</dict></plist>";
}

std::string dictionary(const std::string& members) {
  return "<dict>" + members + "</dict>";
}

/// The reason for which a seal is refused; empty when it is read.
std::string reasonOf(const std::string& seal) {
  try {
    ResourceSeal::read(platform::Data(seal));
    return {};
  } catch (const platform::FormatError& error) {
    return error.localizedDescription();
  }
}

struct Case {
  const char* reason;
  std::string members;
};

TEST(ResourceSeal, whatItCannotMeanIsRefused) {
  const std::string text = "<string>text</string>";
  const std::string three = "<data>AAAA</data>";
  for (const Case& tested : {Case{"a digest of a wrong length", three},
                             {"a digest of a wrong length", dictionary("<key>hash</key>" + three)},
                             {"a digest of a wrong length", dictionary("<key>hash2</key>" + three)},
                             {"a digest of a wrong length", dictionary("<key>hash2</key>" + text)},
                             {"a digest of a wrong length", dictionary("<key>cdhash</key>" + three)},
                             {"a text of another kind", dictionary("<key>symlink</key>" + three)},
                             {"a text of another kind", dictionary("<key>requirement</key><true/>")},
                             {"is not understood", dictionary("<key>optional</key>" + text)},
                             {"nothing about its content", dictionary("<key>optional</key><true/>")},
                             {"nothing about its content", text}})
    EXPECT_THAT(reasonOf(sealOf(dictionary("<key>file</key>" + tested.members), "<dict/>")),
                testing::HasSubstr(tested.reason))
        << tested.members;
  const std::string link = dictionary("<key>symlink</key>" + text);
  EXPECT_EQ(reasonOf(sealOf(dictionary("<key>file</key>" + link), "<dict/>")), "");
  EXPECT_THAT(
      reasonOf(sealOf(dictionary("<key>\xC3\xA9</key>" + link + "<key>e\xCC\x81</key>" + link), "<dict/>")),
      testing::HasSubstr("is there twice"));
  EXPECT_THAT(reasonOf(sealOf(text, "<dict/>")), testing::HasSubstr("lacks its part \"files2\""));
  EXPECT_THAT(reasonOf(sealOf("<dict/>", text)), testing::HasSubstr("lacks its part \"rules2\""));
}

TEST(ResourceSeal, rulesThatItCannotFollowAreRefused) {
  const auto rule = [](const std::string& key, const std::string& value) {
    return "<key>^R/</key><dict><key>" + key + "</key>" + value + "</dict>";
  };
  std::string many;
  for (int index = 0; index < 257; ++index)
    many += "<key>" + std::to_string(index) + "</key><true/>";
  for (const Case& tested : {Case{"", "<key>^R/</key><true/>" + rule("weight", "<integer>7</integer>")},
                             {"is not understood", "<key>^R/</key><false/>"},
                             {"is not understood", "<key>^R/</key><string>omit</string>"},
                             {"is not understood", rule("omit", "<string>yes</string>")},
                             {"no proper weight", rule("weight", "<string>1</string>")},
                             {"no proper weight", rule("weight", "<real>nan</real>")},
                             {"no regular expression", "<key>^[</key><true/>"},
                             {"is too long", "<key>" + std::string(1025, 'x') + "</key><true/>"},
                             {"too many", many}})
    EXPECT_THAT(reasonOf(sealOf("<dict/>", dictionary(tested.members))), testing::HasSubstr(tested.reason))
        << tested.members.substr(0, 100);
}

}  // namespace
