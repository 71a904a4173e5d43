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

/// The reason why a seal is rejected; empty when it is accepted.
std::string reasonOf(const std::string& seal) {
  try {
    ResourceSeal::read(platform::Data(seal));
    return {};
  } catch (const platform::FormatError& error) {
    return error.reason();
  }
}

TEST(ResourceSeal, whatItCannotMeanOrFollowIsRefused) {
  const std::string three = "<data>AAAA</data>";
  const std::string link = dictionary("<key>symlink</key><string>text</string>");
  std::string many;
  for (int index = 0; index < 257; ++index)
    many += "<key>" + std::to_string(index) + "</key><true/>";
  std::string complex;
  for (int index = 0; index < 30; ++index)
    complex += "<key>" + std::to_string(index) + "(a{30}){30}</key><true/>";
  const auto file = [](const std::string& member) {
    return sealOf(dictionary("<key>file</key>" + dictionary(member)), "<dict/>");
  };
  const auto rules = [](const std::string& members) { return sealOf("<dict/>", dictionary(members)); };
  for (const auto& [seal, reason] :
       {std::pair<std::string, const char*>{file("<key>hash2</key>" + three), "a digest of the wrong length"},
        {file("<key>cdhash</key>" + three), "a digest of the wrong length"},
        {file("<key>symlink</key>" + three), "a value that is not a string"},
        {file("<key>optional</key>" + three), "is not valid"},
        {file("<key>optional</key><true/>"), "not say anything about its content"},
        {sealOf(dictionary("<key>\xC3\xA9</key>" + link + "<key>e\xCC\x81</key>" + link), "<dict/>"),
         "exists twice"},
        {sealOf(three, "<dict/>"), "lacks its part \"files2\""},
        {sealOf("<dict/>", three), "lacks its part \"rules2\""},
        {rules("<key>^R/</key><false/>"), "is not valid"},
        {rules("<key>^R/</key><dict><key>omit</key><string>yes</string></dict>"), "is not valid"},
        {rules("<key>^R/</key><dict><key>weight</key><real>nan</real></dict>"), "not have a valid weight"},
        {rules("<key>^[</key><true/>"), "not a regular expression"},
        {rules("<key>" + std::string(1025, 'x') + "</key><true/>"), "is too long"},
        {rules(many), "too many"},
        {rules(complex), "too complex"}})
    EXPECT_THAT(reasonOf(seal), testing::HasSubstr(reason)) << seal.substr(0, 200);
}

}  // namespace
