#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/files/file_manager.hpp"
#include "platform/foundation/bytes.hpp"
#include "platform/security/trust_anchors.hpp"
#include "tests/helpers/program.hpp"
#include "tests/platform/security/signed_sample.hpp"

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

struct Defect {
  const char* name;
  OSStatus status = errSecCSSignatureFailed;
  const char* reason = "";
};

TEST(CertificateChain, aDefectiveOneIsRefusedWithTheRightStatus) {
  for (const Defect& defect :
       {Defect{"intermediate-without-extension", errSecCSReqFailed},
        {"leaf-without-extension", errSecCSReqFailed},
        {"leaf-without-code-signing-usage", errSecCSSignatureFailed, "for signing code"},
        {"leaf-without-usage", errSecCSSignatureFailed, "for signing code"},
        {"leaf-key-not-for-signing", errSecCSSignatureFailed, "for signing code"},
        {"leaf-with-weak-key", errSecCSSignatureFailed, "key too weak"},
        {"leaf-with-two-teams", errSecCSSignatureFailed, "its team is not"},
        {"unknown-critical-extension-in-leaf"},
        {"unknown-critical-extension-in-intermediate"},
        {"self-signed-leaf"},
        {"leaf-as-issuer"},
        {"path-too-long", errSecCSSignatureFailed, "path length constraint exceeded"},
        {"without-intermediate", errSecCSReqFailed},
        {"expired", errSecSuccess}}) {
    const SigningWorkshop workshop({"--defect", defect.name});
    const Verdict verdict = workshop.judge(workshop.signedPlainApplication(), test::sampleRequirement());
    EXPECT_EQ(verdict.status, defect.status) << defect.name << ": " << verdict.sentence;
    EXPECT_THAT(verdict.sentence, testing::HasSubstr(defect.reason)) << defect.name;
  }
}

TEST(CMSSignature, aDefectiveOneIsRefusedWithTheReason) {
  const SigningWorkshop workshop;
  for (const auto& [defect, reason] : {std::pair{"two-signers", "not by one signer"},
                                       {"carried-content", "carries content of its own"},
                                       {"without-signed-attributes", "no signed attributes"},
                                       {"other-content-type", "not over code"},
                                       {"weak-digest", "a digest that is too weak"},
                                       {"other-time-stamp", "its time stamp is not valid"}}) {
    const Verdict verdict =
        workshop.judge(workshop.signedPlainApplication({"--time-stamp", "--defect", defect}));
    EXPECT_EQ(verdict.status, errSecCSSignatureFailed) << defect;
    EXPECT_THAT(verdict.sentence, testing::HasSubstr(reason)) << defect;
  }
}

TEST(CertificateChain, codeSignedByAStrangerIsRefused) {
  const SigningWorkshop workshop;
  const SigningWorkshop stranger;
  const auto expectRefused = [&](const fs::path& application, const char* reason) {
    const Verdict verdict = workshop.judge(application);
    EXPECT_EQ(verdict.status, errSecCSSignatureFailed) << reason;
    EXPECT_THAT(verdict.sentence, testing::HasSubstr(reason));
  };
  expectRefused(stranger.signedPlainApplication(), "do not lead to a trusted root");
  expectRefused(workshop.signedPlainApplication({"--team", "OTHERTEAM1"}), "its team is not");
  for (const char* part : {"time_stamp.pem", "time_stamp_chain.pem", "time_stamp_key.pem"})
    fs::copy_file(stranger.chain().directory() / part, workshop.chain().directory() / part,
                  fs::copy_options::overwrite_existing);
  expectRefused(workshop.signedPlainApplication({"--time-stamp"}), "time stamp");
}

TEST(CertificateChain, adHocCodeIsValidButNeverAnchored) {
  const SigningWorkshop workshop;
  const fs::path application = test::makePlainApplication(workshop / "ad hoc");
  EXPECT_EQ(workshop.judge(application).status, platform::errSecCSUnsigned);
  test::runSignBundle({"sign", application.native(), "--ad-hoc"});
  EXPECT_TRUE(workshop.judge(application).accepted());
  EXPECT_EQ(workshop.judge(application, "anchor apple generic").status, errSecCSReqFailed);
}

TEST(CMSSignature, trailingDataAndAMissingMessageAreRefused) {
  const SigningWorkshop workshop;
  const fs::path application = workshop.signedPlainApplication();
  const fs::path signature = application / "Contents/_CodeSignature/CodeSignature";
  test::writeFile(signature, test::readFile(signature) + "x");
  EXPECT_THAT(workshop.judge(application).sentence, testing::HasSubstr("is not signed data"));
  fs::remove(signature);
  EXPECT_EQ(workshop.judge(application).status, errSecCSSignatureFailed);
}

TEST(TrustAnchors, theShippedRootIsTheGeneralOne) {
  const auto anchors = TrustAnchors::inDirectory(location(test::buildPrefix() / "share/quorin/anchors"));
  ASSERT_EQ(anchors.roots().size(), 1U);
  EXPECT_EQ(platform::hexadecimal(anchors.roots().front().sha256Fingerprint()),
            "b0b1730ecbc7ff4505142c49f1295e6eda6bcaed7e2c68c5be91b5a11001f024");
}

TEST(TrustAnchors, filesThatOthersMayHaveChangedAreRefused) {
  const SigningWorkshop workshop;
  const fs::path anchors = workshop.anchors();
  const fs::path file = anchors / "root.pem";
  const auto isRefused = [&] {
    try {
      TrustAnchors::inDirectory(location(anchors));
      return false;
    } catch (const platform::SecurityError& error) {
      EXPECT_THAT(error.localizedDescription(), testing::StartsWith("The trusted roots in"));
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
    if (::geteuid() == 0) {
      ASSERT_EQ(::chown(item.c_str(), 12345, 0), 0);
      EXPECT_TRUE(isRefused()) << item;
      ASSERT_EQ(::chown(item.c_str(), 0, 0), 0);
    }
  }
  EXPECT_FALSE(isRefused());
  fs::rename(file, workshop / "root.pem");
  fs::create_symlink(workshop / "root.pem", file);
  EXPECT_TRUE(isRefused()) << "a link";
  const SigningWorkshop selfSigned({"--defect", "self-signed-leaf"});
  for (const fs::path& certificate :
       {workshop.chain().directory() / "chain.pem", selfSigned.chain().directory() / "leaf.pem"}) {
    fs::remove(file);
    fs::copy_file(certificate, file);
    EXPECT_TRUE(isRefused()) << "a certificate that is not a root: " << certificate;
  }
  test::writeFile(file, "text");
  EXPECT_TRUE(isRefused()) << "no certificate";
}

TEST(TrustAnchors, withoutAnchorsNothingIsTrusted) {
  const SigningWorkshop workshop;
  const fs::path application = workshop.signedPlainApplication();
  fs::remove_all(workshop.anchors());
  EXPECT_EQ(workshop.judge(application).status, errSecCSSignatureFailed);
}

}  // namespace
