#include <gtest/gtest.h>

#include "tests/platform/security/signed_sample.hpp"

namespace fs = std::filesystem;

namespace {

using test::SampleExecutable;
using test::SigningWorkshop;
using test::Verdict;

const SigningWorkshop& workshop() {
  static const SigningWorkshop shared;
  return shared;
}

struct AcceptedCase {
  const char* name;
  SampleExecutable executable;
  std::vector<std::string> options;
};

class AcceptedApplication : public testing::TestWithParam<AcceptedCase> {};

TEST_P(AcceptedApplication, satisfiesTheDeveloperIDRequirement) {
  const fs::path application =
      workshop().signedApplication({.executable = GetParam().executable}, GetParam().options);
  const Verdict verdict = workshop().judge(application, test::sampleRequirement());
  EXPECT_TRUE(verdict.accepted()) << verdict.sentence;
}

INSTANTIATE_TEST_SUITE_P(
    Signatures, AcceptedApplication,
    testing::Values(AcceptedCase{"script", SampleExecutable::script, {}},
                    AcceptedCase{"universal", SampleExecutable::machO, {}},
                    AcceptedCase{"twoDirectories", SampleExecutable::machO, {"--hash", "sha1+sha256"}},
                    AcceptedCase{"sha384", SampleExecutable::machO, {"--hash", "sha384"}},
                    AcceptedCase{
                        "sealedWithBoth", SampleExecutable::script, {"--sealed-hash", "sha1+sha256"}},
                    AcceptedCase{"sealedWithSha1", SampleExecutable::script, {"--sealed-hash", "sha1"}},
                    AcceptedCase{"onePage", SampleExecutable::machO, {"--page-size", "unlimited"}},
                    AcceptedCase{"largePages", SampleExecutable::machO, {"--page-size", "16384"}},
                    AcceptedCase{"timeStamped", SampleExecutable::machO, {"--time-stamp"}},
                    AcceptedCase{"hardened", SampleExecutable::machO, {"--hardened-runtime"}}),
    [](const auto& tested) { return tested.param.name; });

TEST(AcceptedApplication, anAccentInTheExecutablesNameMayBeWrittenEitherWay) {
  const fs::path application = workshop().signedApplication({.name = "Caf\xC3\xA9"});
  const fs::path code = application / "Contents/MacOS";
  fs::rename(code / "Caf\xC3\xA9", code / "Cafe\xCC\x81");
  const Verdict verdict = workshop().judge(application, test::sampleRequirement());
  EXPECT_TRUE(verdict.accepted()) << verdict.sentence;
  fs::copy_file(code / "Cafe\xCC\x81", code / "Caf\xC3\xA9");
  EXPECT_FALSE(workshop().judge(application).accepted());
}

}  // namespace
