#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

#include "platform/crypto/digest.hpp"
#include "platform/foundation/file_manager.hpp"
#include "platform/security/trust_anchors.hpp"
#include "tests/platform/security/signed_sample.hpp"
#include "tests/support/program.hpp"

namespace fs = std::filesystem;

namespace {

using platform::errSecCSReqFailed;
using platform::errSecCSSignatureFailed;
using platform::errSecSuccess;
using platform::OSStatus;
using platform::TrustAnchors;
using platform::URL;
using test::SigningWorkshop;
using test::Verdict;

URL location(const fs::path& path) {
  return URL::fileURLWithPath(path.native());
}

struct ChainCase {
  const char* defect;
  OSStatus status;
};

class DefectiveChain : public testing::TestWithParam<ChainCase> {};

TEST_P(DefectiveChain, isRefusedWithTheRightStatus) {
  const SigningWorkshop workshop({"--defect", GetParam().defect});
  const fs::path application = workshop.signedPlainApplication();
  const Verdict verdict = workshop.judge(application, test::sampleRequirement());
  EXPECT_EQ(verdict.status, GetParam().status) << verdict.sentence;
}

INSTANTIATE_TEST_SUITE_P(
    Defects, DefectiveChain,
    testing::Values(ChainCase{"intermediate-without-extension", errSecCSReqFailed},
                    ChainCase{"leaf-without-extension", errSecCSReqFailed},
                    ChainCase{"extensions-swapped", errSecCSSignatureFailed},
                    ChainCase{"leaf-without-code-signing-usage", errSecCSSignatureFailed},
                    ChainCase{"unknown-critical-extension-in-leaf", errSecCSSignatureFailed},
                    ChainCase{"unknown-critical-extension-in-intermediate", errSecCSSignatureFailed},
                    ChainCase{"self-signed-leaf", errSecCSSignatureFailed},
                    ChainCase{"leaf-as-issuer", errSecCSSignatureFailed},
                    ChainCase{"without-intermediate", errSecCSReqFailed},
                    ChainCase{"expired", errSecSuccess}),
    [](const auto& tested) {
      std::string name = tested.param.defect;
      std::replace(name.begin(), name.end(), '-', '_');
      return name;
    });

TEST(CertificateChain, aChainToAnotherRootIsRefused) {
  const SigningWorkshop trusted;
  const SigningWorkshop stranger;
  const Verdict verdict = trusted.judge(stranger.signedPlainApplication(), test::sampleRequirement());
  EXPECT_EQ(verdict.status, errSecCSSignatureFailed);
  EXPECT_THAT(verdict.sentence, testing::HasSubstr("do not lead to a trusted root"));
}

TEST(CertificateChain, aTimeStampByAStrangerIsRefused) {
  const SigningWorkshop workshop;
  const SigningWorkshop stranger;
  for (const char* part : {"time_stamp.pem", "time_stamp_chain.pem", "time_stamp_key.pem"})
    fs::copy_file(stranger.chain().directory() / part, workshop.chain().directory() / part,
                  fs::copy_options::overwrite_existing);
  const Verdict verdict = workshop.judge(workshop.signedPlainApplication({"--time-stamp"}));
  EXPECT_EQ(verdict.status, errSecCSSignatureFailed);
  EXPECT_THAT(verdict.sentence, testing::HasSubstr("time stamp"));
}

TEST(CertificateChain, aTeamThatIsNotTheCertificatesIsRefused) {
  const SigningWorkshop workshop;
  const Verdict verdict = workshop.judge(workshop.signedPlainApplication({"--team", "OTHERTEAM1"}));
  EXPECT_EQ(verdict.status, errSecCSSignatureFailed);
  EXPECT_THAT(verdict.sentence, testing::HasSubstr("team"));
}

TEST(CertificateChain, codeSignedByNobodyIsValidButNeverAnchored) {
  const SigningWorkshop workshop;
  const fs::path application = test::makePlainApplication(workshop / "ad hoc");
  EXPECT_EQ(workshop.judge(application).status, platform::errSecCSUnsigned);
  test::runSignBundle({"sign", application.native(), "--ad-hoc"});
  EXPECT_TRUE(workshop.judge(application).accepted());
  EXPECT_EQ(workshop.judge(application, "anchor apple generic").status, errSecCSReqFailed);
}

TEST(CertificateChain, aSignatureWithoutItsSignerIsRefused) {
  const SigningWorkshop workshop;
  const fs::path application = workshop.signedPlainApplication();
  fs::remove(application / "Contents/_CodeSignature/CodeSignature");
  EXPECT_EQ(workshop.judge(application).status, errSecCSSignatureFailed);
}

TEST(TrustAnchors, theShippedRootIsTheGeneralOne) {
  const auto anchors = TrustAnchors::inDirectory(location(test::buildPrefix() / "share/quorin/anchors"));
  ASSERT_EQ(anchors.roots().size(), 1U);
  EXPECT_EQ(platform::hexadecimal(anchors.roots().front().sha256Fingerprint()),
            "b0b1730ecbc7ff4505142c49f1295e6eda6bcaed7e2c68c5be91b5a11001f024");
}

TEST(TrustAnchors, whatOthersMayHaveChangedIsRefused) {
  const SigningWorkshop workshop;
  const fs::path anchors = workshop.anchors();
  const fs::path file = anchors / "root.pem";
  EXPECT_EQ(TrustAnchors::inDirectory(location(anchors)).roots().size(), 1U);
  const auto isRefused = [&] {
    try {
      TrustAnchors::inDirectory(location(anchors));
      return false;
    } catch (const platform::SecurityError&) {
      return true;
    }
  };
  for (const fs::path& item : {anchors, file}) {
    const fs::perms usual = fs::status(item).permissions();
    for (const fs::perms others : {fs::perms::group_write, fs::perms::others_write}) {
      fs::permissions(item, usual | others);
      EXPECT_TRUE(isRefused()) << item;
    }
    fs::permissions(item, usual);
  }
  EXPECT_FALSE(isRefused());
  if (::geteuid() != 0)
    GTEST_SKIP() << "only the superuser can give files away";
  for (const fs::path& item : {anchors, file}) {
    ASSERT_EQ(::chown(item.c_str(), 12345, 0), 0);
    EXPECT_TRUE(isRefused()) << item;
    ASSERT_EQ(::chown(item.c_str(), 0, 0), 0);
  }
  fs::rename(file, workshop / "root.pem");
  fs::create_symlink(workshop / "root.pem", file);
  EXPECT_TRUE(isRefused()) << "a link";
  fs::remove(file);
  fs::copy_file(workshop.chain().directory() / "leaf.pem", file);
  EXPECT_TRUE(isRefused()) << "a certificate that is no root";
  test::writeFile(file, "text");
  EXPECT_TRUE(isRefused()) << "no certificate";
}

TEST(TrustAnchors, aFailureSaysThatItIsAboutThem) {
  const SigningWorkshop workshop;
  fs::remove_all(workshop.anchors());
  test::writeFile(workshop.anchors(), "no directory");
  try {
    TrustAnchors::inDirectory(location(workshop.anchors()));
    FAIL();
  } catch (const platform::SecurityError& error) {
    EXPECT_THAT(error.localizedDescription(), testing::HasSubstr("The trusted roots in"));
    EXPECT_THAT(error.localizedDescription(), testing::Not(testing::HasSubstr("..")));
  }
}

TEST(TrustAnchors, withoutAnchorsNothingIsTrusted) {
  const SigningWorkshop workshop;
  const fs::path application = workshop.signedPlainApplication();
  ASSERT_TRUE(workshop.judge(application).accepted());
  fs::remove_all(workshop.anchors());
  EXPECT_EQ(workshop.judge(application).status, errSecCSSignatureFailed);
}

}  // namespace
