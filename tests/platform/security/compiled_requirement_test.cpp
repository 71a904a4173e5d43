#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/security/code_signature_format.hpp"
#include "platform/security/requirement.hpp"
#include "platform/security/security_error.hpp"
#include "tests/helpers/bytes.hpp"
#include "tests/platform/security/signed_sample.hpp"
#include "tools/sign_bundle/blob_writer.hpp"
#include "tools/sign_bundle/requirement_writer.hpp"

namespace {

using platform::FormatError;
using platform::readCompiledRequirement;
using platform::RequirementNode;

std::string numbers(const std::vector<std::uint32_t>& values) {
  std::string bytes;
  for (const std::uint32_t value : values)
    bytes += test::bigEndian(value, 4);
  return bytes;
}

std::string data(std::string bytes) {
  const std::string length = numbers({static_cast<std::uint32_t>(bytes.size())});
  bytes.resize((bytes.size() + 3) / 4 * 4);
  return length + bytes;
}

std::string blob(const std::string& expression) {
  return sign_bundle::makeBlob(platform::magic::kRequirement, numbers({1}) + expression);
}

/// The tree in the language's own words.
std::string textOf(const std::string& expression) {
  return readCompiledRequirement(blob(expression)).text;
}

TEST(CompiledRequirement, saysTheSameAsItsText) {
  const std::string hash(20, '\x5A');
  const std::string hashText = "H\"5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a\"";
  const std::string oid("\x2A\x86\x48\x86\xF7\x63\x64\x06\x01\x0D");
  EXPECT_EQ(textOf(numbers({6, 2}) + data("a.b.c") + numbers({7, 15, 9, 0})),
            "(identifier \"a.b.c\" and (anchor apple generic or !never))");
  EXPECT_EQ(textOf(numbers({14, 0}) + data(oid) + numbers({0})),
            "certificate 0[field.1.2.840.113635.100.6.1.13] exists");
  EXPECT_EQ(textOf(numbers({11, 0xFFFFFFFF}) + data("subject.CN") + numbers({1}) + data("A Root")),
            "certificate -1[subject.CN] = \"A Root\"");
  EXPECT_EQ(textOf(numbers({4, 1}) + data(hash)), "certificate 1 = " + hashText);
  EXPECT_EQ(textOf(numbers({8}) + data(hash)), "cdhash " + hashText);
  EXPECT_EQ(textOf(numbers({10}) + data("Key") + numbers({0})), "info[Key] exists");

  // The text that is written is one that the parser takes.
  const auto identity = sign_bundle::SigningIdentity::read(
      platform::URL::fileURLWithPath(test::workshop().chain().directory().native()));
  const sign_bundle::Requirement designated =
      sign_bundle::designatedRequirement("com.example.sample", identity);
  const RequirementNode compiled = readCompiledRequirement(designated.blob);
  const RequirementNode parsed = platform::parseRequirement(compiled.text);
  EXPECT_EQ(parsed.kind, RequirementNode::Kind::all);
  for (const char* part : {"com.example.sample", "100.6.2.6", "100.6.1.13", test::SampleChain::kTeam})
    EXPECT_THAT(compiled.text, testing::HasSubstr(part));
}

TEST(CompiledRequirement, whatIsDamagedOrUnknownIsRefused) {
  const std::string valid =
      numbers({6, 2}) + data("a.b.c") + numbers({14, 0}) + data("\x2A\x86\x48") + numbers({0});
  EXPECT_NO_THROW(textOf(valid));
  for (std::size_t length = 0; length < valid.size(); ++length)
    EXPECT_THROW(textOf(valid.substr(0, length)), FormatError) << length;
  EXPECT_THROW(textOf(valid + numbers({1})), FormatError);
  for (const std::string& expression :
       {numbers({99}), numbers({10}) + data("Key") + numbers({4}) + data("x"), numbers({8}) + data("short"),
        numbers({14, 0}) + data("\x86") + numbers({0}),
        numbers({14, 0}) + data(std::string(12, '\xFF')) + numbers({0}),
        numbers({11, 0}) + data("issuer.CN") + numbers({0}), numbers(std::vector<std::uint32_t>(1000, 9)),
        numbers({2, 0xFFFFFFFF})})
    EXPECT_THROW(textOf(expression), FormatError);
}

}  // namespace
