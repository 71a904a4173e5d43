#include "platform/security/requirement.hpp"

#include <gtest/gtest.h>

#include "platform/crypto/digest.hpp"
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

TEST_F(RequirementTest, textsAndTheirOutcomes) {
  ASSERT_EQ(code().chain.size(), 3U);
  const std::string hash = repeated("ab", 20);
  const std::string fingerprint = platform::hexadecimal(code().chain.front().sha1Fingerprint());
  const std::vector<std::pair<std::string, Outcome>> cases{
      // words
      {"always", Outcome::holds},
      {"never", Outcome::fails},
      {"  always\t\r\n", Outcome::holds},
      {"/* text */ always /* identifier */", Outcome::holds},
      {"identifier \"com.example.sample\"", Outcome::holds},
      {"identifier com.example.sample", Outcome::holds},
      {"identifier \"com.example.Sample\"", Outcome::fails},
      {"identifier \"com.example\"", Outcome::fails},
      {"identifier \"com.example.sampl\\e\"", Outcome::holds},
      {"identifier = \"com.example.sample\"", Outcome::refused},
      // operators
      {"always and never", Outcome::fails},
      {"always or never", Outcome::holds},
      {"!never", Outcome::holds},
      {"! always", Outcome::fails},
      {"!never and never", Outcome::fails},
      {"!(always and never)", Outcome::holds},
      {"always or always and never", Outcome::holds},
      {"(always or always) and never", Outcome::fails},
      {"never and never or always", Outcome::holds},
      {"!!always", Outcome::holds},
      // anchors
      {"anchor apple generic", Outcome::holds},
      {"anchor trusted", Outcome::holds},
      {"anchor apple", Outcome::fails},
      // certificates
      {"certificate leaf[field.1.2.840.113635.100.6.1.13] exists", Outcome::holds},
      {"certificate leaf[field.1.2.840.113635.100.6.1.13] /* exists */", Outcome::holds},
      {"certificate leaf[field.1.2.840.113635.100.6.1.13]", Outcome::holds},
      {"certificate 0[field.1.2.840.113635.100.6.1.13]", Outcome::holds},
      {"certificate 1[field.1.2.840.113635.100.6.1.13]", Outcome::fails},
      {"certificate 1[field.1.2.840.113635.100.6.2.6] exists", Outcome::holds},
      {"certificate -2[field.1.2.840.113635.100.6.2.6] exists", Outcome::holds},
      {"certificate leaf[field.1.2.840.113635.100.6.1] exists", Outcome::fails},
      {"certificate 3[subject.CN] exists", Outcome::fails},
      {"certificate -4[subject.CN] exists", Outcome::fails},
      {"certificate root[subject.CN] exists", Outcome::holds},
      {"certificate anchor[subject.CN] exists", Outcome::holds},
      {"certificate leaf[subject.OU] = \"QS7TEAM123\"", Outcome::holds},
      {"certificate leaf[subject.OU] = QS7TEAM123", Outcome::holds},
      {"certificate leaf[subject.OU] = \"qs7team123\"", Outcome::fails},
      {"certificate leaf[subject.OU] = \"\"", Outcome::fails},
      {"certificate leaf = H\"" + fingerprint + "\"", Outcome::holds},
      {"certificate root = H\"" + fingerprint + "\"", Outcome::fails},
      // code directory and Info.plist
      {"cdhash H\"" + hash + "\"", Outcome::holds},
      {"cdhash H\"" + repeated("AB", 20) + "\"", Outcome::holds},
      {"cdhash H\"" + repeated("ac", 20) + "\"", Outcome::fails},
      {"info[CFBundleVersion] = \"42\"", Outcome::holds},
      {"info[CFBundleVersion] = \"43\"", Outcome::fails},
      {"info[\"CFBundleVersion\"] exists", Outcome::holds},
      {"info[Number] = \"42\"", Outcome::fails},
      {"info[Missing] exists", Outcome::fails},
      // the whole of a Developer ID requirement, and the same as a signer writes it
      {test::sampleRequirement(), Outcome::holds},
      {test::sampleRequirement("com.example.other"), Outcome::fails},
      {"identifier \"com.example.sample\" and anchor apple generic and certificate "
       "1[field.1.2.840.113635.100.6.2.6] /* exists */ and certificate leaf[field.1.2.840.113635.100.6.1.13] "
       "/* exists */ and certificate leaf[subject.OU] = QS7TEAM123",
       Outcome::holds},
      // no requirements
      {"", Outcome::refused},
      {"   ", Outcome::refused},
      {"/* always */", Outcome::refused},
      {"always /* open", Outcome::refused},
      {"sometimes", Outcome::refused},
      {"identifier and", Outcome::refused},
      {"identifier \"and\"", Outcome::fails},
      {"certificate leaf[subject.OU] = exists", Outcome::refused},
      {"info[anchor] exists", Outcome::refused},
      {"certificate -0[subject.CN] exists", Outcome::refused},
      {"certificate 00[subject.CN] exists", Outcome::refused},
      {"ALWAYS", Outcome::refused},
      {"always always", Outcome::refused},
      {"always and", Outcome::refused},
      {"and always", Outcome::refused},
      {"always or or always", Outcome::refused},
      {"(always", Outcome::refused},
      {"always)", Outcome::refused},
      {"()", Outcome::refused},
      {"!", Outcome::refused},
      {"identifier", Outcome::refused},
      {"identifier \"open", Outcome::refused},
      {"identifier \"open\\", Outcome::refused},
      {"anchor", Outcome::refused},
      {"anchor other", Outcome::refused},
      {"certificate", Outcome::refused},
      {"certificate leaf", Outcome::refused},
      {"certificate two[subject.CN]", Outcome::refused},
      {"certificate 99999999999[subject.CN]", Outcome::refused},
      {"certificate 1x[subject.CN]", Outcome::refused},
      {"certificate leaf[field.]", Outcome::refused},
      {"certificate leaf[field.1..2]", Outcome::refused},
      {"certificate leaf[field.one.two]", Outcome::refused},
      {"certificate leaf[field.1.2] = \"x\"", Outcome::refused},
      {"certificate leaf[subject.Unknown] = \"x\"", Outcome::refused},
      {"certificate leaf[subject.OU = \"x\"", Outcome::refused},
      {"certificate leaf[subject.OU] \"x\"", Outcome::refused},
      {"certificate leaf = \"" + fingerprint + "\"", Outcome::refused},
      {"cdhash H\"abc\"", Outcome::refused},
      {"cdhash H\"" + repeated("ab", 19) + "\"", Outcome::refused},
      {"cdhash H\"" + repeated("ab", 21) + "\"", Outcome::refused},
      {"cdhash H\"" + repeated("xy", 20) + "\"", Outcome::refused},
      {"cdhash " + hash, Outcome::refused},
      {"always; never", Outcome::refused},
      {std::string("always\0", 7), Outcome::refused},
      {"identifier < \"x\"", Outcome::refused},
      // without end
      {repeated("(", 100'000), Outcome::refused},
      {repeated("!", 100'000) + "always", Outcome::refused},
      {repeated("always and ", 100'000) + "always", Outcome::holds},
  };
  for (const auto& [text, outcome] : cases)
    EXPECT_EQ(judge(text, code()), outcome) << text.substr(0, 120);
}

TEST_F(RequirementTest, codeWithoutCertificatesFailsWhateverAsksForThem) {
  CodeIdentity adHoc = code();
  adHoc.chain.clear();
  for (const char* text : {"anchor apple generic", "anchor trusted", "certificate leaf[subject.OU] exists",
                           "certificate root[subject.CN] exists", "certificate 0[field.1.2.3] exists"})
    EXPECT_EQ(judge(text, adHoc), Outcome::fails) << text;
  EXPECT_EQ(judge("identifier com.example.sample", adHoc), Outcome::holds);
}

TEST_F(RequirementTest, theFailingClauseIsNamed) {
  const Requirement requirement = Requirement::parse(
      "anchor apple generic and identifier \"com.example.sample\" and certificate leaf[subject.OU] = "
      "\"OTHER\"");
  EXPECT_EQ(requirement.failingClause(code(), nullptr), "certificate leaf[subject.OU] = \"OTHER\"");
}

}  // namespace
