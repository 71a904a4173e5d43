#include "support/code_signature.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/helpers/program.hpp"
#include "tests/platform/security/signed_sample.hpp"

namespace fs = std::filesystem;
namespace CodeSignature = QuorinSupport::CodeSignature;

namespace {

using test::SampleChain;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kIdentifier = "com.example.sample";
constexpr const char* kUntrusted =
    "refused: The code signature is not a Developer ID signature from the expected team: ";

TEST(CodeSignature, acceptedIdentifiersAndTeams) {
  const auto isAccepted = [](const char* identifier, const char* team) {
    return CodeSignature::developerIDRequirement(identifier, team).has_value();
  };
  for (const char* identifier : {"a", "a.b-c_D9"})
    EXPECT_TRUE(isAccepted(identifier, "TEAM")) << identifier;
  for (const char* identifier : {"", "a b", "a\"b", "a\\b", "a\n", "\xC3\xA4", "\xD9\xA3", "a\xFF"})
    EXPECT_FALSE(isAccepted(identifier, "TEAM")) << identifier;
  // An upper-case letter, a digit and a title-case letter outside of ASCII are among them.
  for (const char* team : {"T", "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789", "\xC3\x89\xD9\xA3", "\xC7\x85"})
    EXPECT_TRUE(isAccepted("a", team)) << team;
  for (const char* team : {"", "TEAm", "TEAM 1", "TEAM\"", "TEAM-1", "TEAM\xFF", "\xC3\xA9"})
    EXPECT_FALSE(isAccepted("a", team)) << team;
}

TEST(CodeSignature, theRequirementAsksForATrustedRoot) {
  // A chain that leads elsewhere is refused before any requirement is asked.
  EXPECT_THAT(CodeSignature::developerIDRequirement("a", "T").value(),
              StartsWith("anchor apple generic and "));
}

/// An installation of its own, which trusts a chain's root, with a program that passes on to the
/// operations here.
class InstalledJudge {
 public:
  explicit InstalledJudge(const SampleChain& chain) {
    fs::create_directories(prefix_ / "bin");
    fs::copy_file(test::buildPrefix() / "bin/judge_code", prefix_ / "bin/judge_code");
    test::trustOnly(chain.root(), anchors());
  }

  std::string judge(const std::vector<std::string>& arguments) const {
    return test::runProgram(prefix_ / "bin/judge_code", arguments).output;
  }

  fs::path anchors() const { return prefix_ / "share/quorin/anchors"; }

 private:
  test::TemporaryDirectory prefix_;
};

TEST(CodeSignature, verdictsThroughTheInstallation) {
  const test::SigningWorkshop workshop;
  const InstalledJudge installed(workshop.chain());
  const std::string code = workshop.signedPlainApplication().native();
  EXPECT_EQ(installed.judge({code, kIdentifier, SampleChain::kTeam}),
            "accepted: Developer ID of QS7TEAM123\n");
  EXPECT_EQ(installed.judge({code, kIdentifier}), "accepted: Developer ID of QS7TEAM123\n");
  EXPECT_EQ(installed.judge({code}), "accepted: validly signed as com.example.sample, team QS7TEAM123\n");
  EXPECT_THAT(
      installed.judge({code, kIdentifier, "OTHERTEAM1"}),
      testing::AllOf(StartsWith(kUntrusted), EndsWith("certificate leaf[subject.OU] = \"OTHERTEAM1\".\n")));
  EXPECT_THAT(installed.judge({code, "com.example.other", SampleChain::kTeam}),
              testing::AllOf(StartsWith(kUntrusted), EndsWith("identifier \"com.example.other\".\n")));

  fs::permissions(installed.anchors(), fs::perms(0777));
  EXPECT_THAT(installed.judge({code, kIdentifier}), HasSubstr("others may change them"));
  fs::permissions(installed.anchors(), fs::perms(0755));
  test::writeFile(fs::path(code) / "Contents/Resources/added", "added");
  EXPECT_EQ(installed.judge({code, kIdentifier, SampleChain::kTeam}),
            "refused: \"" + code + "/Contents/Resources/added\" was added after signing.\n");
}

TEST(CodeSignature, everyClauseAboutTheCertificatesIsAsked) {
  for (const auto& [defect, clause] :
       {std::pair("intermediate-without-extension", "certificate 1[field.1.2.840.113635.100.6.2.6] exists"),
        {"leaf-without-extension", "certificate leaf[field.1.2.840.113635.100.6.1.13] exists"}}) {
    const test::SigningWorkshop workshop({"--defect", defect});
    const InstalledJudge installed(workshop.chain());
    EXPECT_THAT(
        installed.judge({workshop.signedPlainApplication().native(), kIdentifier, SampleChain::kTeam}),
        testing::AllOf(StartsWith(kUntrusted), HasSubstr(clause)))
        << defect;
  }
}

TEST(CodeSignature, codeWithoutAProperTeamIsNotOfADeveloper) {
  const test::TemporaryDirectory directory;
  const SampleChain chain(directory / "chain", "lowercase1");
  const InstalledJudge installed(chain);
  const std::string code = test::makePlainApplication(directory / "parent").native();
  test::runSignBundle({"sign", code, "--ad-hoc"});
  EXPECT_EQ(installed.judge({code}), "accepted: validly signed as com.example.sample, team (none)\n");
  EXPECT_EQ(installed.judge({code, kIdentifier}), std::string(kUntrusted) + "No team identifier.\n");
  chain.sign(code);
  EXPECT_EQ(installed.judge({code, kIdentifier}),
            std::string(kUntrusted) + "Unexpected bundle or team identifier.\n");
}

}  // namespace
