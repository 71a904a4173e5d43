#include "support/code_signature.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/platform/security/signed_sample.hpp"
#include "tests/support/program.hpp"

namespace fs = std::filesystem;
namespace CodeSignature = QuorinSupport::CodeSignature;

namespace {

using CodeSignature::Failure;
using platform::URL;
using test::SampleChain;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kIdentifier = "com.example.sample";
constexpr const char* kUntrusted =
    "The code signature is not a Developer ID signature from the expected team: ";

TEST(CodeSignature, requirementText) {
  EXPECT_EQ(
      CodeSignature::developerIDRequirement("com.example-1_a.App", "TEAM123456"),
      "anchor apple generic and identifier \"com.example-1_a.App\" and certificate "
      "1[field.1.2.840.113635.100.6.2.6] exists and certificate leaf[field.1.2.840.113635.100.6.1.13] exists "
      "and certificate leaf[subject.OU] = \"TEAM123456\"");
}

struct NameCase {
  const char* identifier;
  const char* team;
  bool accepted;
};

TEST(CodeSignature, acceptedIdentifiersAndTeams) {
  const std::vector<NameCase> cases{
      {"a", "T", true},
      {"a.b-c_D9", "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789", true},
      {"a", "\xC3\x89\xD9\xA3", true},  // an upper-case letter and a digit outside ASCII
      {"a", "\xC7\x85", true},          // a title-case letter
      {"", "TEAM", false},
      {"a", "", false},
      {"a b", "TEAM", false},
      {"a\"b", "TEAM", false},
      {"a\\b", "TEAM", false},
      {"a\n", "TEAM", false},
      {"\xC3\xA4", "TEAM", false},
      {"\xD9\xA3", "TEAM", false},
      {"a\xFF", "TEAM", false},
      {"a", "TEAm", false},
      {"a", "TEAM 1", false},
      {"a", "TEAM\"", false},
      {"a", "TEAM-1", false},
      {"a", "TEAM\xFF", false},
      {"a", "\xC3\xA9", false},
  };
  for (const NameCase& tested : cases) {
    EXPECT_EQ(CodeSignature::developerIDRequirement(tested.identifier, tested.team).has_value(),
              tested.accepted)
        << tested.identifier << " / " << tested.team;
  }
}

/// What an operation throws, or nothing.
template <typename Operation>
std::optional<Failure> failureOf(Operation&& operation) {
  try {
    operation();
    return std::nullopt;
  } catch (const Failure& failure) {
    return failure;
  }
}

TEST(CodeSignature, failuresThatNeedNoSignature) {
  const test::TemporaryDirectory directory;
  const URL missing = URL::fileURLWithPath((directory / "missing.app").native());
  const URL empty = URL::fileURLWithPath(directory.path().native());
  const auto validate = [](const URL& code, const std::optional<std::string>& requirement) {
    return failureOf([&] { CodeSignature::validate(code, requirement); });
  };
  EXPECT_EQ(validate(missing, std::nullopt), Failure::unreadable());
  EXPECT_EQ(validate(missing, "no requirement"), Failure::unreadable());
  EXPECT_EQ(validate(empty, std::nullopt), Failure::unreadable());
  EXPECT_EQ(failureOf([&] { CodeSignature::validateDeveloperID(missing, "", "TEAM"); }),
            Failure::untrusted("Unexpected bundle or team identifier."));
  EXPECT_EQ(failureOf([&] { CodeSignature::validateDeveloperID(missing, "a", "team"); }),
            Failure::untrusted("Unexpected bundle or team identifier."));
  test::writeFile(directory / "file", "text");
  const URL file = URL::fileURLWithPath((directory / "file").native());
  EXPECT_EQ(validate(file, "no requirement"), Failure::invalid("Invalid code requirement."));
  EXPECT_EQ(validate(file, std::nullopt), Failure::invalid("\"" + file.path() + "\" is not signed at all."));
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
  const std::string code = workshop.signedApplication().native();
  EXPECT_EQ(installed.judge({code, kIdentifier, SampleChain::kTeam}),
            "accepted: Developer ID of QS7TEAM123\n");
  EXPECT_EQ(installed.judge({code, kIdentifier}), "accepted: Developer ID of QS7TEAM123\n");
  EXPECT_EQ(installed.judge({code}), "accepted: validly signed as com.example.sample, team QS7TEAM123\n");
  const std::string untrusted = std::string("refused: ") + kUntrusted;
  EXPECT_THAT(
      installed.judge({code, kIdentifier, "OTHERTEAM1"}),
      testing::AllOf(StartsWith(untrusted), EndsWith("certificate leaf[subject.OU] = \"OTHERTEAM1\".\n")));
  EXPECT_THAT(installed.judge({code, "com.example.other", SampleChain::kTeam}),
              testing::AllOf(StartsWith(untrusted), EndsWith("identifier \"com.example.other\".\n")));
  EXPECT_EQ(installed.judge({code, "--requirement", "nothing"}), "refused: Invalid code requirement.\n");

  test::writeFile(fs::path(code) / "Contents/Resources/added", "added");
  const std::string refused = installed.judge({code, kIdentifier, SampleChain::kTeam});
  EXPECT_EQ(refused, "refused: \"" + code + "/Contents/Resources/added\" was added after signing.\n");
}

TEST(CodeSignature, verdictsOnCodeWithoutTeam) {
  const test::SigningWorkshop workshop;
  const InstalledJudge installed(workshop.chain());
  const fs::path code = test::makePlainApplication(workshop / "ad hoc");
  test::runSignBundle({"sign", code.native(), "--ad-hoc"});
  EXPECT_EQ(installed.judge({code.native()}),
            "accepted: validly signed as com.example.sample, team (none)\n");
  EXPECT_EQ(installed.judge({code.native(), kIdentifier}),
            std::string("refused: ") + kUntrusted + "No team identifier.\n");
}

TEST(CodeSignature, aTeamInLowerCaseHasNoRequirement) {
  const test::TemporaryDirectory directory;
  const SampleChain chain(directory / "chain", "lowercase1");
  const fs::path code = test::makePlainApplication(directory / "parent");
  chain.sign(code);
  EXPECT_EQ(InstalledJudge(chain).judge({code.native(), kIdentifier}),
            std::string("refused: ") + kUntrusted + "Unexpected bundle or team identifier.\n");
}

TEST(CodeSignature, anchorsThatOthersMayChangeAreRefused) {
  const test::SigningWorkshop workshop;
  const InstalledJudge installed(workshop.chain());
  const std::string code = workshop.signedPlainApplication().native();
  EXPECT_THAT(installed.judge({code, kIdentifier}), StartsWith("accepted"));
  fs::permissions(installed.anchors(), fs::perms(0777));
  EXPECT_THAT(installed.judge({code, kIdentifier}), HasSubstr("others may change them"));
}

}  // namespace
