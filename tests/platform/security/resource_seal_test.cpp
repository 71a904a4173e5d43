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
    return error.reason();
  }
}

TEST(ResourceSeal, whatItCannotMeanIsRefused) {
  const auto expectRefused = [](const std::string& members, const char* reason) {
    EXPECT_THAT(reasonOf(sealOf(dictionary(members), "<dict/>")), testing::HasSubstr(reason)) << members;
  };
  const std::string three = "<data>AAAA</data>";
  const std::string link = dictionary("<key>symlink</key><string>text</string>");
  for (const auto& [member, reason] : {std::pair{"<key>hash2</key>" + three, "a digest of a wrong length"},
                                       {"<key>cdhash</key>" + three, "a digest of a wrong length"},
                                       {"<key>symlink</key>" + three, "a text of another kind"},
                                       {"<key>optional</key>" + three, "is not understood"},
                                       {"<key>optional</key><true/>", "nothing about its content"}})
    expectRefused("<key>file</key>" + dictionary(member), reason);
  expectRefused("<key>\xC3\xA9</key>" + link + "<key>e\xCC\x81</key>" + link, "is there twice");
  EXPECT_THAT(reasonOf(sealOf(three, "<dict/>")), testing::HasSubstr("lacks its part \"files2\""));
  EXPECT_THAT(reasonOf(sealOf("<dict/>", three)), testing::HasSubstr("lacks its part \"rules2\""));
}

TEST(ResourceSeal, rulesThatItCannotFollowAreRefused) {
  std::string many;
  for (int index = 0; index < 257; ++index)
    many += "<key>" + std::to_string(index) + "</key><true/>";
  std::string complex;
  for (int index = 0; index < 30; ++index)
    complex += "<key>" + std::to_string(index) + "(a{30}){30}</key><true/>";
  for (const auto& [rules, reason] :
       {std::pair<std::string, const char*>{"<key>^R/</key><false/>", "is not understood"},
        {"<key>^R/</key><dict><key>omit</key><string>yes</string></dict>", "is not understood"},
        {"<key>^R/</key><dict><key>weight</key><real>nan</real></dict>", "no proper weight"},
        {"<key>^[</key><true/>", "no regular expression"},
        {"<key>" + std::string(1025, 'x') + "</key><true/>", "is too long"},
        {many, "too many"},
        {complex, "too complex"}})
    EXPECT_THAT(reasonOf(sealOf("<dict/>", dictionary(rules))), testing::HasSubstr(reason))
        << rules.substr(0, 100);
}

}  // namespace
