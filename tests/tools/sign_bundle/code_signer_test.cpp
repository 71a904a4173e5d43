#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "tests/support/files.hpp"
#include "tests/support/sample_application.hpp"
#include "tests/tools/sign_bundle/signature_reader.hpp"

namespace fs = std::filesystem;

namespace {

using test::SampleChain;

class SigningBundles : public testing::Test {
 protected:
  static fs::path component(const fs::path& application, const char* name) {
    return application / "Contents/_CodeSignature" / name;
  }
  static std::string read(const fs::path& application, const char* name) {
    return test::readFile(component(application, name));
  }

  test::TemporaryDirectory directory_;
  SampleChain chain_{directory_ / "chain"};
};

TEST_F(SigningBundles, BindsEveryPartOfAScriptApplication) {
  // Longer than a page, so that there are several and the last one is short.
  const std::string script = "#!/bin/sh\n" + std::string(10'000, '#') + "\n";
  const fs::path application = test::makeSampleApplication(directory_.path(), {.script = script});
  test::writeFile(directory_ / "entitlements", "<plist><dict/></plist>");
  chain_.sign(application, {"--identifier", "com.example.other", "--hardened-runtime", "--time-stamp",
                            "--entitlements", directory_ / "entitlements"});

  const auto directory = test::readCodeDirectory(read(application, "CodeDirectory"));
  EXPECT_EQ(directory.identifier, "com.example.other");
  EXPECT_EQ(directory.team, SampleChain::kTeam);
  EXPECT_EQ(directory.version, 0x20500U);
  EXPECT_EQ(directory.flags, 0x10000U);
  EXPECT_EQ(directory.runtimeVersion, 0x0E0000U);
  EXPECT_EQ(directory.codeLimit, script.size());
  EXPECT_EQ(directory.codeSlots.size(), 3U);
  EXPECT_EQ(directory.codeSlots, test::expectedCodeSlots(script, directory));
  const std::vector<std::string> slots = {
      test::digestByType(test::readFile(application / "Contents/Info.plist"), 2),
      test::digestByType(read(application, "CodeRequirements"), 2),
      test::digestByType(read(application, "CodeResources"), 2),
      std::string(32, '\0'),
      test::digestByType(read(application, "CodeEntitlements"), 2),
  };
  EXPECT_EQ(directory.specialSlots, slots);

  const std::string message = test::payloadOf(read(application, "CodeSignature"));
  EXPECT_EQ(test::verifyMessage(message, directory.blob), "");
  EXPECT_EQ(test::verifyTimeStamp(message, chain_.directory()), "");
}

TEST_F(SigningBundles, LeavesEverythingButTheCodeAndItsSignatureAsItWas) {
  const fs::path application = test::makeSampleApplication(directory_.path());
  const auto before = test::inventory(application);
  chain_.sign(application);
  std::set<std::string> changed;
  const auto after = test::inventory(application);
  for (const auto& [path, description] : after) {
    const auto old = before.find(path);
    if (path.find("_CodeSignature") == std::string::npos &&
        (old == before.end() || old->second != description))
      changed.insert(path);
  }
  EXPECT_THAT(
      changed,
      testing::UnorderedElementsAre(
          "Contents/Frameworks/Sample.framework/Versions/A/Frameworks/Inner.framework/Versions/A/Inner",
          "Contents/Frameworks/Sample.framework/Versions/A/Sample",
          "Contents/Frameworks/Sample.framework/Versions/A/sample-agent",
          "Contents/Frameworks/libsample.1.dylib",
          "Contents/Library/LoginItems/Agent.app/Contents/MacOS/Agent", "Contents/MacOS/sample-helper",
          "Contents/PlugIns/Sample.bundle/Contents/MacOS/Sample",
          "Contents/PlugIns/Share.appex/Contents/MacOS/Share",
          "Contents/XPCServices/com.example.sample.service.xpc/Contents/MacOS/com.example.sample.service"));
  for (const auto& [path, description] : before)
    EXPECT_TRUE(after.contains(path)) << path;
}

TEST_F(SigningBundles, ReplacesAnEarlierSignatureWithAllItsParts) {
  const fs::path application = test::makePlainApplication(directory_.path());
  test::writeFile(directory_ / "entitlements", "<plist><dict/></plist>");
  chain_.sign(application, {"--entitlements", directory_ / "entitlements"});
  ASSERT_TRUE(fs::exists(component(application, "CodeEntitlements")));
  test::runSignBundle({"sign", application, "--ad-hoc"});
  EXPECT_FALSE(fs::exists(component(application, "CodeEntitlements")));

  const auto directory = test::readCodeDirectory(read(application, "CodeDirectory"));
  EXPECT_EQ(directory.flags, 0x2U);
  EXPECT_EQ(directory.team, "");
  EXPECT_EQ(directory.specialSlots.size(), 3U);
  EXPECT_EQ(test::payloadOf(read(application, "CodeSignature")), "");
}

TEST_F(SigningBundles, StatesTheTeamAskedForWhateverTheCertificateSays) {
  const fs::path application = test::makePlainApplication(directory_.path());
  chain_.sign(application, {"--team", "OTHER"});
  EXPECT_EQ(test::readCodeDirectory(read(application, "CodeDirectory")).team, "OTHER");
}

TEST_F(SigningBundles, NamesCodeAfterItsPropertyListOrItsFile) {
  const fs::path application = test::makeSampleApplication(directory_.path());
  chain_.sign(application);
  EXPECT_EQ(test::readCodeDirectory(read(application, "CodeDirectory")).identifier, "com.example.sample");
  const std::vector<std::pair<const char*, const char*>> names = {
      {"MacOS/sample-helper", "sample-helper"},
      {"Frameworks/libsample.1.dylib", "libsample.1"},
      {"Frameworks/Sample.framework/Versions/A/Sample", "com.example.sample.framework"}};
  for (const auto& [path, name] : names) {
    const auto slices = test::readSlices(test::readFile(application / "Contents" / path));
    const auto blobs = test::readSuperBlob(slices.at(0).bytes.substr(slices.at(0).signatureOffset));
    EXPECT_EQ(test::readCodeDirectory(blobs.at(0)).identifier, name) << path;
  }
}

TEST_F(SigningBundles, StatesAMomentAtWhichAnExpiredCertificateWasValid) {
  const SampleChain expired(directory_ / "expired", SampleChain::kTeam, {"--defect", "expired"});
  const fs::path application = test::makePlainApplication(directory_.path());
  expired.sign(application);
  const std::string message = test::payloadOf(read(application, "CodeSignature"));
  EXPECT_THAT(test::signedAttribute(message, "1.2.840.113549.1.9.5"), testing::ElementsAre("141230235959Z"));
}

}  // namespace
