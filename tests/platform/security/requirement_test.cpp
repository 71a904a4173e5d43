#include "platform/security/requirement.hpp"

#include <gtest/gtest.h>

#include "platform/foundation/bytes.hpp"
#include "platform/security/security_error.hpp"
#include "tests/platform/security/signed_sample.hpp"

namespace {

using platform::Certificate;
using platform::CodeIdentity;
using platform::PropertyList;
using platform::Requirement;

enum class Outcome { refused, holds, fails };

std::vector<Certificate> certificates(const std::filesystem::path& file) {
  return Certificate::fromPEM(test::readFile(file));
}

/// Code with the identifier "com.example.sample", signed with a chain of three certificates.
class RequirementTest : public testing::Test {
 protected:
  static Outcome judge(const std::string& text, const CodeIdentity& code) {
    const PropertyList information(
        PropertyList::Dictionary{{"CFBundleVersion", "42"}, {"Number", PropertyList(std::int64_t{42})}});
    try {
      return Requirement::parse(text).failingClause(code, &information) ? Outcome::fails : Outcome::holds;
    } catch (const platform::SecurityError& error) {
      EXPECT_EQ(error.status(), platform::errSecCSReqInvalid);
      return Outcome::refused;
    }
  }

  static const CodeIdentity& code() {
    static const CodeIdentity signedCode = [] {
      const test::SigningWorkshop workshop;
      CodeIdentity identity{.place = "code",
                            .identifier = "com.example.sample",
                            .teamIdentifier = test::SampleChain::kTeam,
                            .codeDirectoryHash = std::string(20, '\xAB'),
                            .chain = certificates(workshop.chain().directory() / "leaf.pem")};
      for (const Certificate& certificate : certificates(workshop.chain().directory() / "chain.pem"))
        identity.chain.push_back(certificate);
      return identity;
    }();
    return signedCode;
  }
};

std::string repeated(std::string_view text, std::size_t count) {
  std::string result;
  for (std::size_t index = 0; index < count; ++index)
    result += text;
  return result;
}

TEST_F(RequirementTest, textsThatHold) {
  ASSERT_EQ(code().chain.size(), 3U);
  const std::string fingerprint = platform::hexadecimal(code().chain.front().sha1Fingerprint());
  for (const std::string& text : std::vector<std::string>{
           "always", "  always\t\r\n", "/* text */ always /* identifier */",
           "identifier \"com.example.sample\"", "identifier com.example.sample",
           "identifier \"com.example.sampl\\e\"", "always or never", "!never", "!(always and never)",
           "always or always and never", "never and never or always", "!!always", "anchor apple generic",
           "anchor trusted", "certificate leaf[field.1.2.840.113635.100.6.1.13] exists",
           "certificate leaf[field.1.2.840.113635.100.6.1.13]",
           "certificate 0[field.1.2.840.113635.100.6.1.13]",
           "certificate 1[field.1.2.840.113635.100.6.2.6] exists",
           "certificate -2[field.1.2.840.113635.100.6.2.6] exists", "certificate root[subject.CN] exists",
           "certificate anchor[subject.CN] exists", "certificate leaf[subject.OU] = \"QS7TEAM123\"",
           "certificate leaf = H\"" + fingerprint + "\"", "cdhash H\"" + repeated("ab", 20) + "\"",
           "cdhash H\"" + repeated("AB", 20) + "\"", "info[CFBundleVersion] = \"42\"",
           "info[\"CFBundleVersion\"] exists", test::sampleRequirement(),
           // the same as written by a signing tool
           "identifier \"com.example.sample\" and anchor apple generic and certificate "
           "1[field.1.2.840.113635.100.6.2.6] /* exists */ and certificate "
           "leaf[field.1.2.840.113635.100.6.1.13] /* exists */ and certificate leaf[subject.OU] = QS7TEAM123",
           repeated("always and ", 100'000) + "always"})
    EXPECT_EQ(judge(text, code()), Outcome::holds) << text.substr(0, 120);
}

TEST_F(RequirementTest, textsThatFail) {
  const std::string fingerprint = platform::hexadecimal(code().chain.front().sha1Fingerprint());
  for (const std::string& text : std::vector<std::string>{
           // words and operators
           "never", "identifier \"com.example.Sample\"", "identifier \"com.example\"", "identifier \"and\"",
           "always and never", "! always", "!never and never", "(always or always) and never",
           // certificates
           "anchor apple", "certificate 1[field.1.2.840.113635.100.6.1.13]",
           "certificate leaf[field.1.2.840.113635.100.6.1] exists", "certificate 3[subject.CN] exists",
           "certificate -4[subject.CN] exists", "certificate leaf[subject.OU] = \"qs7team123\"",
           "certificate leaf[subject.OU] = \"\"", "certificate root = H\"" + fingerprint + "\"",
           // the rest
           "cdhash H\"" + repeated("ac", 20) + "\"", "info[CFBundleVersion] = \"43\"",
           "info[Number] = \"42\"", "info[Missing] exists", test::sampleRequirement("com.example.other")})
    EXPECT_EQ(judge(text, code()), Outcome::fails) << text;
}

TEST_F(RequirementTest, textsThatAreRefused) {
  for (const std::string& text : std::vector<std::string>{
           // words and operators
           "", "/* always */", "always /* open", "sometimes", "ALWAYS", "always always", "always and",
           "and always", "always or or always", "(always", "always)", "()", "!", "always; never",
           std::string("always\0", 7), "identifier", "identifier = \"com.example.sample\"",
           "identifier < \"x\"", "identifier and", "identifier \"open", "identifier \"open\\",
           // certificates
           "anchor", "anchor other", "certificate leaf", "certificate two[subject.CN]",
           "certificate -0[subject.CN] exists", "certificate 00[subject.CN] exists",
           "certificate 99999999999[subject.CN]", "certificate leaf[field.1..2]",
           "certificate leaf[field.one.two]", "certificate leaf[field.1.2] = \"x\"",
           "certificate leaf[subject.Unknown] = \"x\"", "certificate leaf[subject.OU = \"x\"",
           "certificate leaf[subject.OU] \"x\"", "certificate leaf[subject.OU] = exists",
           // digests
           "certificate leaf = \"" + repeated("ab", 20) + "\"", "cdhash " + repeated("ab", 20),
           "cdhash H\"" + repeated("ab", 19) + "\"", "cdhash H\"" + repeated("ab", 21) + "\"",
           "cdhash H\"" + repeated("xy", 20) + "\"", "cdhash H\"abc\"",
           // without end
           repeated("(", 100'000), repeated("!", 100'000) + "always"})
    EXPECT_EQ(judge(text, code()), Outcome::refused) << text.substr(0, 120);
}

TEST_F(RequirementTest, adHocCodeFailsEveryConditionOnCertificates) {
  CodeIdentity adHoc = code();
  adHoc.chain.clear();
  for (const char* text : {"anchor apple generic", "anchor trusted", "certificate leaf[subject.OU] exists",
                           "certificate root[subject.CN] exists", "certificate 0[field.1.2.3] exists"})
    EXPECT_EQ(judge(text, adHoc), Outcome::fails) << text;
  EXPECT_EQ(judge("identifier com.example.sample", adHoc), Outcome::holds);
}

}  // namespace
