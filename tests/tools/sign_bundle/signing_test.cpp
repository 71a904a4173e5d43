// What the options of signing change in the signature. That a signature holds
// is for the check of signatures to say, which knows nothing of how they are
// made.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/foundation/property_list.hpp"
#include "platform/security/code_blobs.hpp"
#include "platform/security/code_directory.hpp"
#include "platform/security/mach_o.hpp"
#include "tests/platform/security/memory_source.hpp"
#include "tests/platform/security/signed_sample.hpp"

namespace fs = std::filesystem;
namespace slot = platform::slot;

namespace {

using platform::CodeDirectory;
using platform::DigestAlgorithm;
using test::SampleChain;

class SigningTest : public testing::Test {
 protected:
  fs::path plainApplication(const std::vector<std::string>& options) const {
    return workshop.signedPlainApplication(options);
  }

  void expectAccepted(const fs::path& code) const {
    const test::Verdict verdict = workshop.judge(code);
    EXPECT_TRUE(verdict.accepted()) << verdict.sentence;
  }

  const test::SigningWorkshop workshop;
};

/// The components of each slice's signature.
std::vector<platform::CodeComponents> signaturesOf(const fs::path& file) {
  const std::string bytes = test::readFile(file);
  std::vector<platform::CodeComponents> signatures;
  const auto slices = platform::readMachO(test::MemorySource(bytes));
  for (const auto& slice : slices.value())
    signatures.push_back(platform::readEmbeddedSignature(
        bytes.substr(slice.range.offset + slice.signature.value().offset, slice.signature->length)));
  return signatures;
}

std::string componentOf(const fs::path& application, const char* name) {
  return test::readFile(application / "Contents/_CodeSignature" / name);
}

std::string flagsOf(const CodeDirectory& directory) {
  return std::string(directory.blob().substr(12, 4));
}

TEST_F(SigningTest, EveryKindOfMachOFileOnceAndAgain) {
  constexpr auto kSha256 = DigestAlgorithm::sha256;
  constexpr std::uint64_t kUnlimited = 0;
  struct Case {
    const char* name;
    std::vector<std::string> make;
    std::vector<std::string> sign;
    std::vector<DigestAlgorithm> algorithms;
    std::vector<std::uint64_t> pageSizes;  ///< of each slice
  };
  const Case cases[] = {
      {"thin", {"x86_64"}, {}, {kSha256}, {4096}},
      {"large pages", {"arm64"}, {}, {kSha256}, {16384}},
      {"32 bits", {"i386"}, {}, {kSha256}, {4096}},
      {"big-endian", {"ppc"}, {}, {kSha256}, {4096}},
      {"two digests", {"both"}, {"--hash", "sha1+sha256"}, {DigestAlgorithm::sha1, kSha256}, {4096, 16384}},
      {"SHA-384",
       {"x86_64,arm64,i386"},
       {"--hash", "sha384"},
       {DigestAlgorithm::sha384},
       {4096, 16384, 4096}},
      {"64-bit universal header", {"both", "--wide"}, {}, {kSha256}, {4096, 16384}},
      {"one page", {"both"}, {"--page-size", "unlimited"}, {kSha256}, {kUnlimited, kUnlimited}},
      {"small pages", {"both"}, {"--page-size", "4096"}, {kSha256}, {4096, 4096}}};
  for (const Case& tested : cases) {
    SCOPED_TRACE(tested.name);
    const fs::path tool = workshop / tested.name;
    std::vector<std::string> make = {"make-mach-o", tool, "--least-size", "50000", "--arch"};
    make.insert(make.end(), tested.make.begin(), tested.make.end());
    test::runSignBundle(make);
    workshop.chain().sign(tool, tested.sign);
    const auto size = fs::file_size(tool);
    workshop.chain().sign(tool, tested.sign);
    EXPECT_EQ(fs::file_size(tool), size) << "signing again replaces the signature";
    EXPECT_EQ(fs::status(tool).permissions(), fs::perms(0755));
    expectAccepted(tool);
    std::vector<std::uint64_t> pageSizes;
    for (const auto& components : signaturesOf(tool)) {
      std::vector<DigestAlgorithm> algorithms;
      for (const auto& [number, blob] : components) {
        if (number == slot::kCodeDirectory ||
            (number >= slot::kFirstAlternate && number <= slot::kLastAlternate))
          algorithms.push_back(CodeDirectory::read(blob).algorithm());
      }
      EXPECT_EQ(algorithms, tested.algorithms);
      const CodeDirectory directory = CodeDirectory::read(components.at(slot::kCodeDirectory));
      pageSizes.push_back(directory.pageSize() == directory.codeLimit() ? kUnlimited : directory.pageSize());
    }
    EXPECT_EQ(pageSizes, tested.pageSizes);
  }
}

TEST_F(SigningTest, WhatABundlesSignatureSaysAsAsked) {
  test::writeFile(workshop / "entitlements", "<plist><dict/></plist>");
  const fs::path application =
      plainApplication({"--identifier", "com.example.other", "--hardened-runtime", "--team", "OTHER",
                        "--entitlements", workshop / "entitlements"});
  const std::string blob = componentOf(application, "CodeDirectory");
  const CodeDirectory directory = CodeDirectory::read(blob);
  EXPECT_EQ(directory.identifier(), "com.example.other");
  EXPECT_EQ(directory.teamIdentifier(), "OTHER");
  EXPECT_EQ(flagsOf(directory), std::string("\0\1\0\0", 4));
  EXPECT_EQ(directory.specialDigest(slot::kEntitlements),
            directory.digestOf(componentOf(application, "CodeEntitlements")));

  // An earlier signature is replaced with all its parts.
  test::runSignBundle({"sign", application, "--ad-hoc"});
  EXPECT_FALSE(fs::exists(application / "Contents/_CodeSignature/CodeEntitlements"));
  const std::string adHocBlob = componentOf(application, "CodeDirectory");
  const CodeDirectory adHoc = CodeDirectory::read(adHocBlob);
  EXPECT_EQ(flagsOf(adHoc), std::string("\0\0\0\2", 4));
  EXPECT_EQ(adHoc.identifier(), "com.example.sample");
  EXPECT_EQ(adHoc.teamIdentifier(), std::nullopt);
  EXPECT_EQ(adHoc.specialSlotCount(), slot::kResources);
  EXPECT_EQ(platform::blobPayload(componentOf(application, "CodeSignature")), "");
}

TEST_F(SigningTest, OnlyCodeAndItsSignaturesChange) {
  const fs::path application = test::makeSampleApplication(workshop / "parent");
  const auto before = test::inventory(application);
  workshop.chain().sign(application);
  const auto after = test::inventory(application);
  std::size_t changed = 0;
  for (const auto& [path, description] : before) {
    changed += after.at(path) == description ? 0U : 1U;
    if (path.find("Resources") != std::string::npos || path.find(".dext") != std::string::npos) {
      EXPECT_EQ(after.at(path), description) << path;
    }
  }
  EXPECT_EQ(changed, 9U) << "the Mach-O files that are code";
}

TEST_F(SigningTest, CodeIsNamedAfterItsPropertyListOrItsFile) {
  const fs::path contents = workshop.signedApplication() / "Contents";
  for (const auto& [path, name] :
       {std::pair("MacOS/sample-helper", "sample-helper"),
        {"Frameworks/libsample.1.dylib", "libsample.1"},
        {"Frameworks/Sample.framework/Versions/A/Sample", "com.example.sample.framework"}})
    EXPECT_EQ(CodeDirectory::read(signaturesOf(contents / path).at(0).at(slot::kCodeDirectory)).identifier(),
              name);
}

TEST_F(SigningTest, EveryVersionOfAFrameworkIsSigned) {
  const fs::path application = test::makeSampleApplication(workshop / "parent");
  const fs::path versions = application / "Contents/Frameworks/Sample.framework/Versions";
  fs::copy(versions / "A", versions / "B", fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  test::writeFile(versions / "B/Resources/extra", "so that the versions differ");
  workshop.chain().sign(application);
  EXPECT_TRUE(fs::exists(versions / "B/_CodeSignature/CodeResources"));
  expectAccepted(application);
}

TEST_F(SigningTest, NestedCodeIsSealedByWhatItsSignatureOffers) {
  const SampleChain other(workshop / "other", SampleChain::kTeam, {"--defect", "leaf-without-extension"});
  const fs::path application = workshop.signedApplication();
  const auto sealed = [&] {
    const auto seal = platform::NSPropertyListSerialization::propertyListWithData(
        platform::Data(componentOf(application, "CodeResources")));
    return *seal.valueForKey("files2")
                ->valueForKey("MacOS/sample-helper")
                ->valueForKey("requirement")
                ->string();
  };
  EXPECT_THAT(sealed(), testing::StartsWith("identifier \"sample-helper\" and anchor apple generic"));
  other.sign(application);
  EXPECT_THAT(sealed(), testing::MatchesRegex("identifier \"sample-helper\" and "
                                              "certificate leaf = H\"[0-9a-f]{40}\""));
  test::runSignBundle({"sign", application, "--ad-hoc"});
  EXPECT_THAT(sealed(), testing::MatchesRegex("cdhash H\"[0-9a-f]{40}\" or cdhash H\"[0-9a-f]{40}\""));
  expectAccepted(application);
}

}  // namespace
