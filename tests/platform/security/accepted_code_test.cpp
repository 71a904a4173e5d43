#include <gtest/gtest.h>

#include "tests/platform/security/signed_sample.hpp"

namespace fs = std::filesystem;

namespace {

using test::SampleExecutable;
using test::Verdict;
using test::workshop;

TEST(AcceptedApplication, satisfiesTheDeveloperIDRequirementHoweverItIsSigned) {
  for (const auto& [executable, options] :
       {std::pair<SampleExecutable, std::vector<std::string>>{SampleExecutable::script, {}},
        {SampleExecutable::machO, {}},
        {SampleExecutable::machO, {"--hash", "sha1+sha256"}},
        {SampleExecutable::machO, {"--hash", "sha1+sha256", "--defect", "unsorted-digests"}},
        {SampleExecutable::script, {"--hash", "sha1+sha256"}},
        {SampleExecutable::machO, {"--hash", "sha384"}},
        {SampleExecutable::script, {"--sealed-hash", "sha1+sha256"}},
        {SampleExecutable::script, {"--sealed-hash", "sha1"}},
        {SampleExecutable::machO, {"--page-size", "unlimited"}},
        {SampleExecutable::machO, {"--page-size", "16384"}},
        {SampleExecutable::machO, {"--time-stamp"}},
        {SampleExecutable::machO, {"--hardened-runtime"}}}) {
    const fs::path application = workshop().signedApplication({.executable = executable}, options);
    const Verdict verdict = workshop().judge(application, test::sampleRequirement());
    EXPECT_TRUE(verdict.accepted()) << testing::PrintToString(options) << verdict.sentence;
  }
}

TEST(AcceptedMachO, ofEveryArchitectureAndHeaderSignedOnceAndAgain) {
  for (const std::vector<std::string>& form :
       {std::vector<std::string>{"i386"}, {"ppc"}, {"x86_64,arm64,i386"}, {"both", "--wide"}}) {
    const fs::path tool = workshop() / form.back();
    std::vector<std::string> make{"make-mach-o", tool, "--least-size", "50000", "--arch"};
    make.insert(make.end(), form.begin(), form.end());
    test::runSignBundle(make);
    workshop().chain().sign(tool);
    const auto size = fs::file_size(tool);
    workshop().chain().sign(tool);
    EXPECT_EQ(fs::file_size(tool), size) << "signing again replaces the signature";
    EXPECT_TRUE(workshop().judge(tool).accepted()) << form.back();
  }
}

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
