#include "tools/sign_bundle/requirement.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace std::string_literals;

TEST(Requirement, IsCompiledIntoTheOperationsOfTheFormat) {
  const std::string expected =
      "\xFA\xDE\x0C\x00\0\0\0\x8C"s                // a requirement of 140 bytes
      "\0\0\0\x01"s                                // as an expression
      "\0\0\0\x06\0\0\0\x06\0\0\0\x06\0\0\0\x06"s  // four times "and"
      "\0\0\0\x02\0\0\0\x05"
      "ident\0\0\0"s  // identifier
      "\0\0\0\x0F"s   // anchor apple generic
      "\0\0\0\x0E\0\0\0\x01\0\0\0\x0A\x2A\x86\x48\x86\xF7\x63\x64\x06\x02\x06\0\0\0\0\0\0"s
      "\0\0\0\x0E\0\0\0\0\0\0\0\x0A\x2A\x86\x48\x86\xF7\x63\x64\x06\x01\x0D\0\0\0\0\0\0"s
      "\0\0\0\x0B\0\0\0\0\0\0\0\x0A"
      "subject.OU\0\0\0\0\0\x01\0\0\0\x04"
      "TEAM"s;
  EXPECT_EQ(sign_bundle::developerIDRequirement("ident", "TEAM").blob, expected);
}

TEST(Requirement, NamesAnyOtherCertificateByItsDigest) {
  const std::string digest = "0123456789abcdefghij";
  const std::string expected =
      "\xFA\xDE\x0C\0\0\0\0\x3C\0\0\0\x01\0\0\0\x06\0\0\0\x02\0\0\0\x03"
      "abc\0"s
      "\0\0\0\x04\0\0\0\0\0\0\0\x14"s +
      digest;
  const sign_bundle::Requirement requirement = sign_bundle::certificateRequirement("abc", digest);
  EXPECT_EQ(requirement.blob, expected);
  EXPECT_EQ(requirement.text,
            "identifier \"abc\" and certificate leaf = "
            "H\"303132333435363738396162636465666768696a\"");
}

}  // namespace
