// What the options of signing change in the signature. That a signature holds is for the check of signatures
// to say, which knows nothing of how they are made.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "platform/formats/property_list.hpp"
#include "platform/security/code_blobs.hpp"
#include "platform/security/code_directory.hpp"
#include "platform/security/mach_o.hpp"
#include "tests/helpers/program.hpp"
#include "tests/platform/security/memory_source.hpp"
#include "tests/platform/security/signed_sample.hpp"

namespace fs = std::filesystem;
namespace slot = platform::slot;

namespace {

using platform::CodeDirectory;
using platform::DigestAlgorithm;
using platform::PropertyList;
using test::SampleChain;
using testing::ElementsAre;
using testing::IsSupersetOf;
using testing::Pair;

class SigningTest : public testing::Test {
 protected:
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

PropertyList sealOf(const fs::path& application) {
  return platform::NSPropertyListSerialization::propertyListWithData(
      platform::Data(componentOf(application, "CodeResources")));
}

/// The sealed paths with what their entries say, in a word. The digests themselves are for the check of
/// signatures.
std::map<std::string, std::string> kindsOf(const PropertyList& seal, std::string_view generation) {
  std::map<std::string, std::string> kinds;
  for (const auto& [path, entry] : *seal.valueForKey(generation)->dictionary()) {
    std::string& kind = kinds[path];
    if (entry.data() != nullptr) {
      kind = "sha1";
      continue;
    }
    for (const auto& [key, value] : *entry.dictionary())
      kind += (kind.empty() ? "" : " ") + (key == "symlink" ? "-> " + *value.string() : key);
  }
  return kinds;
}

TEST_F(SigningTest, EveryKindOfMachOFileOnceAndAgain) {
  using enum DigestAlgorithm;
  constexpr std::uint64_t kUnlimited = 0;
  struct Case {
    const char* name;
    std::vector<std::string> make;
    std::vector<std::string> sign;
    std::vector<DigestAlgorithm> algorithms;
    std::vector<std::uint64_t> pageSizes;  ///< of each slice
  };
  const Case cases[] = {
      {"32 bits", {"i386"}, {}, {sha256}, {4096}},
      {"big-endian", {"ppc"}, {}, {sha256}, {4096}},
      {"two digests", {"both"}, {"--hash", "sha1+sha256"}, {sha1, sha256}, {4096, 16384}},
      {"SHA-384", {"x86_64,arm64,i386"}, {"--hash", "sha384"}, {sha384}, {4096, 16384, 4096}},
      {"64-bit universal header", {"both", "--wide"}, {}, {sha256}, {4096, 16384}},
      {"one page", {"both"}, {"--page-size", "unlimited"}, {sha256}, {kUnlimited, kUnlimited}},
      {"small pages", {"arm64"}, {"--page-size", "4096"}, {sha256}, {4096}}};
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
      workshop.signedPlainApplication({"--identifier", "com.example.other", "--hardened-runtime", "--team",
                                       "OTHER", "--entitlements", workshop / "entitlements"});
  const std::string blob = componentOf(application, "CodeDirectory");
  const CodeDirectory directory = CodeDirectory::read(blob);
  EXPECT_EQ(directory.identifier(), "com.example.other");
  EXPECT_EQ(directory.teamIdentifier(), "OTHER");
  EXPECT_EQ(directory.blob().substr(12, 4), std::string("\0\1\0\0", 4)) << "the flags";
  EXPECT_EQ(directory.specialDigest(slot::kEntitlements),
            directory.digestOf(componentOf(application, "CodeEntitlements")));
}

TEST_F(SigningTest, SealsEverythingByTheRules) {
  const PropertyList seal = sealOf(workshop.signedApplication());
  const auto present = kindsOf(seal, "files2");
  EXPECT_EQ(present.size(), 29U);
  EXPECT_THAT(
      present,
      IsSupersetOf(
          {Pair("Frameworks/Sample.framework.dSYM/Contents/Info.plist", "hash2"),
           Pair("Frameworks/libsample.dylib", "-> libsample.1.dylib"),
           Pair("Library/SystemExtensions/com.example.sample.driver.dext/Contents/Info.plist", "hash2"),
           Pair("MacOS/sample-helper", "cdhash requirement"), Pair("Resources/Base.lproj/Main.nib", "hash2"),
           Pair("Resources/en.lproj/Localizable.strings", "hash2 optional")}));
  for (const char* omitted : {"Info.plist", "PkgInfo", "CodeResources", "Resources/.DS_Store",
                              "Resources/en.lproj/locversion.plist", "MacOS/Sample Application"})
    EXPECT_FALSE(present.contains(omitted)) << omitted;
  const auto older = kindsOf(seal, "files");
  EXPECT_EQ(older.at("version.plist"), "sha1");
  EXPECT_EQ(older.at("Resources/en.lproj/Localizable.strings"), "hash optional");
  EXPECT_FALSE(older.contains("embedded.provisionprofile"));
}

TEST_F(SigningTest, SealsDigestsInTheFormAskedFor) {
  for (const auto& [option, form] : {std::pair("sha1+sha256", "hash hash2"), {"sha1", "sha1"}}) {
    const fs::path application = workshop.signedPlainApplication({"--sealed-hash", option});
    EXPECT_THAT(kindsOf(sealOf(application), "files2"), ElementsAre(Pair("Resources/text.txt", form)));
  }
}

TEST_F(SigningTest, NestedCodeIsSealedByWhatItsSignatureOffers) {
  const SampleChain other(workshop / "other", SampleChain::kTeam, {"--defect", "leaf-without-extension"});
  const fs::path application = workshop.signedApplication();
  const auto sealed = [&] {
    const PropertyList seal = sealOf(application);
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

TEST_F(SigningTest, AChainIsMadeAsAskedAndNeverReplaced) {
  const auto accepts = [](const std::vector<std::string>& arguments) {
    return test::runProgram("/usr/bin/openssl", arguments).exitStatus == 0;
  };
  const fs::path chain = workshop / "other chain";
  const std::vector<std::string> make = {"make-chain", chain, "--team", "TEAM"};
  test::runSignBundle(make);
  EXPECT_TRUE(accepts({"verify", "-ignore_critical", "-purpose", "any", "-CAfile", chain / "root.pem",
                       "-untrusted", chain / "chain.pem", chain / "leaf.pem"}));
  EXPECT_EQ(fs::status(chain / "leaf_key.pem").permissions(), fs::perms(0600));
  const auto before = test::inventory(chain);
  EXPECT_THROW(test::runSignBundle(make), std::runtime_error);
  EXPECT_EQ(test::inventory(chain), before);

  const SampleChain expired(workshop / "expired", "TEAM", {"--defect", "expired"});
  EXPECT_TRUE(accepts({"x509", "-checkend", "0", "-noout", "-in", chain / "leaf.pem"}));
  EXPECT_FALSE(accepts({"x509", "-checkend", "0", "-noout", "-in", expired.directory() / "leaf.pem"}));
}

}  // namespace
