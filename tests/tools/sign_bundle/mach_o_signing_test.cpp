#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "platform/foundation/property_list.hpp"
#include "tests/support/files.hpp"
#include "tests/support/sample_application.hpp"
#include "tests/tools/sign_bundle/signature_reader.hpp"

namespace fs = std::filesystem;

namespace {

using test::SampleChain;

constexpr std::uint32_t kRequirements = 2;
constexpr std::uint32_t kAlternate = 0x1000;
constexpr std::uint32_t kMessage = 0x10000;

struct Case {
  const char* name;
  std::vector<std::string> make;
  std::vector<std::string> sign;
  std::vector<unsigned> hashTypes;
  /// Of each slice.
  std::vector<unsigned> pageSizeExponents;
};

std::ostream& operator<<(std::ostream& stream, const Case& value) {
  return stream << value.name;
}

class SigningMachO : public testing::TestWithParam<Case> {
 protected:
  static void checkDirectory(const test::ReadSlice& slice, const std::string& blob, unsigned hashType,
                             unsigned pageExponent, const std::string& requirements) {
    const auto directory = test::readCodeDirectory(blob);
    EXPECT_EQ(directory.hashType, hashType);
    EXPECT_EQ(directory.pageSizeExponent, pageExponent);
    EXPECT_EQ(directory.codeLimit, slice.signatureOffset);
    EXPECT_EQ(
        directory.codeSlots,
        test::expectedCodeSlots(std::string_view(slice.bytes).substr(0, slice.signatureOffset), directory));
    const std::vector<std::string> slots = {std::string(directory.codeSlots.at(0).size(), '\0'),
                                            test::digestByType(requirements, hashType)};
    EXPECT_EQ(directory.specialSlots, slots);
    EXPECT_EQ(directory.identifier, "com.example.tool");
    EXPECT_GT(directory.executableSegmentLimit, 0U);
    EXPECT_EQ(directory.executableSegmentFlags, 1U);
  }

  /// The message over the first directory has to name all of them, by both attributes.
  static void checkMessage(const std::string& message, const std::vector<std::string>& directories,
                           const std::vector<unsigned>& hashTypes) {
    EXPECT_EQ(test::verifyMessage(message, directories.at(0)), "");
    platform::PropertyList::Array hashes;
    const auto list = test::signedAttribute(message, "1.2.840.113635.100.9.1");
    const auto named = test::signedAttribute(message, "1.2.840.113635.100.9.2");
    ASSERT_EQ(list.size(), 1U);
    ASSERT_EQ(named.size(), directories.size());
    const auto parsed =
        platform::NSPropertyListSerialization::propertyListWithData(platform::Data(list.at(0)));
    for (std::size_t index = 0; index < directories.size(); ++index) {
      const std::string digest = test::digestByType(directories[index], hashTypes.at(index));
      EXPECT_EQ(parsed.valueForKey("cdhashes")->array()->at(index).data()->bytes(), digest.substr(0, 20));
      EXPECT_THAT(named, testing::Contains(testing::EndsWith(digest)));
    }
  }

  void checkSlice(const test::ReadSlice& slice, unsigned pageExponent) const {
    EXPECT_EQ(slice.signatureOffset % 16, 0U);
    EXPECT_EQ(slice.signatureOffset + slice.signatureSize, slice.bytes.size());
    EXPECT_EQ(slice.linkEditEnd, slice.bytes.size());
    EXPECT_GE(slice.linkEditMemorySize, slice.linkEditFileSize);
    const auto blobs = test::readSuperBlob(slice.bytes.substr(slice.signatureOffset));
    std::vector<std::string> directories = {blobs.at(0)};
    for (std::uint32_t place = kAlternate; blobs.contains(place); ++place)
      directories.push_back(blobs.at(place));
    ASSERT_EQ(directories.size(), GetParam().hashTypes.size());
    for (std::size_t index = 0; index < directories.size(); ++index)
      checkDirectory(slice, directories[index], GetParam().hashTypes[index], pageExponent,
                     blobs.at(kRequirements));
    checkMessage(test::payloadOf(blobs.at(kMessage)), directories, GetParam().hashTypes);
  }
};

TEST_P(SigningMachO, BindsEverySliceOnceAndAgain) {
  const test::TemporaryDirectory directory;
  const SampleChain chain(directory / "chain");
  const fs::path tool = directory / "tool";
  std::vector<std::string> make = {"make-mach-o", tool, "--least-size", "50000"};
  make.insert(make.end(), GetParam().make.begin(), GetParam().make.end());
  test::runSignBundle(make);
  std::vector<std::string> options = {"--identifier", "com.example.tool"};
  options.insert(options.end(), GetParam().sign.begin(), GetParam().sign.end());

  std::uintmax_t size = 0;
  for (int round = 0; round < 2; ++round) {
    chain.sign(tool, options);
    EXPECT_EQ(fs::status(tool).permissions(), fs::perms(0755));
    const auto slices = test::readSlices(test::readFile(tool));
    ASSERT_EQ(slices.size(), GetParam().pageSizeExponents.size());
    for (std::size_t index = 0; index < slices.size(); ++index)
      checkSlice(slices[index], GetParam().pageSizeExponents[index]);
    if (round > 0) {
      EXPECT_EQ(fs::file_size(tool), size) << "signing again replaces the signature";
    }
    size = fs::file_size(tool);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Table, SigningMachO,
    testing::Values(
        Case{"thin", {"--arch", "x86_64"}, {}, {2}, {12}},
        Case{"16 KiB pages", {"--arch", "arm64"}, {}, {2}, {14}},
        Case{"32 bits", {"--arch", "i386"}, {}, {2}, {12}},
        Case{"big-endian", {"--arch", "ppc"}, {}, {2}, {12}},
        Case{"universal, two digests", {"--arch", "both"}, {"--hash", "sha1+sha256"}, {1, 2}, {12, 14}},
        Case{"three architectures, SHA-384",
             {"--arch", "x86_64,arm64,i386"},
             {"--hash", "sha384"},
             {4},
             {12, 14, 12}},
        Case{"64-bit universal header", {"--arch", "both", "--wide"}, {}, {2}, {12, 14}},
        Case{"one page without limit", {"--arch", "both"}, {"--page-size", "unlimited"}, {2}, {0, 0}},
        Case{"small pages everywhere", {"--arch", "both"}, {"--page-size", "4096"}, {2}, {12, 12}}));

TEST(SigningMachOBundles, BindsPropertyListAndSealAndSealsNestedCodeByItsHash) {
  const test::TemporaryDirectory directory;
  const SampleChain chain(directory / "chain");
  const fs::path application =
      test::makeSampleApplication(directory.path(), {.executable = test::SampleExecutable::machO});
  chain.sign(application, {"--hash", "sha1+sha256"});

  const fs::path contents = application / "Contents";
  const std::string seal = test::readFile(contents / "_CodeSignature/CodeResources");
  const auto slices = test::readSlices(test::readFile(contents / "MacOS/Sample Application"));
  ASSERT_EQ(slices.size(), 2U);
  for (const auto& slice : slices) {
    const auto blobs = test::readSuperBlob(slice.bytes.substr(slice.signatureOffset));
    for (const std::uint32_t place : {0U, kAlternate}) {
      const auto code = test::readCodeDirectory(blobs.at(place));
      EXPECT_EQ(code.specialSlots.at(0),
                test::digestByType(test::readFile(contents / "Info.plist"), code.hashType));
      EXPECT_EQ(code.specialSlots.at(2), test::digestByType(seal, code.hashType));
    }
  }
  EXPECT_FALSE(fs::exists(contents / "_CodeSignature/CodeDirectory"));

  const auto parsed = platform::NSPropertyListSerialization::propertyListWithData(platform::Data(seal));
  const auto* entry = parsed.valueForKey("files2")->valueForKey("Frameworks/Sample.framework");
  const auto framework =
      test::readSlices(test::readFile(contents / "Frameworks/Sample.framework/Versions/A/Sample")).at(0);
  const auto blobs = test::readSuperBlob(framework.bytes.substr(framework.signatureOffset));
  EXPECT_EQ(entry->valueForKey("cdhash")->data()->bytes(),
            test::digestByType(blobs.at(kAlternate), 2).substr(0, 20));
  EXPECT_THAT(*entry->valueForKey("requirement")->string(),
              testing::HasSubstr("identifier \"com.example.sample.framework\""));
}

TEST(SigningMachOBundles, SignsEveryVersionOfAFrameworkAndSealsTheCurrentOne) {
  const test::TemporaryDirectory directory;
  const SampleChain chain(directory / "chain");
  const fs::path application = test::makeSampleApplication(directory.path());
  const fs::path versions = application / "Contents/Frameworks/Sample.framework/Versions";
  fs::copy(versions / "A", versions / "B", fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  test::writeFile(versions / "B/Resources/extra", "so that the versions differ");
  chain.sign(application);

  const auto hashOf = [&](const char* version) {
    const auto slice = test::readSlices(test::readFile(versions / version / "Sample")).at(0);
    const auto blobs = test::readSuperBlob(slice.bytes.substr(slice.signatureOffset));
    return test::digestByType(blobs.at(0), 2).substr(0, 20);
  };
  const auto seal = platform::NSPropertyListSerialization::propertyListWithData(
      platform::Data(test::readFile(application / "Contents/_CodeSignature/CodeResources")));
  const auto* entry = seal.valueForKey("files2")->valueForKey("Frameworks/Sample.framework");
  EXPECT_EQ(entry->valueForKey("cdhash")->data()->bytes(), hashOf("A"));
  EXPECT_NE(hashOf("A"), hashOf("B"));
  EXPECT_TRUE(fs::exists(versions / "B/_CodeSignature/CodeResources"));
}

/// The hashes of a universal file's slices in their order, as the requirement language writes them.
std::string hashesOfSlices(const fs::path& file) {
  std::string text;
  for (const auto& slice : test::readSlices(test::readFile(file))) {
    const auto blobs = test::readSuperBlob(slice.bytes.substr(slice.signatureOffset));
    text += text.empty() ? "cdhash H\"" : " or cdhash H\"";
    for (const char byte : test::digestByType(blobs.at(0), 2).substr(0, 20)) {
      constexpr const char* kDigits = "0123456789abcdef";
      text +=
          {kDigits[static_cast<unsigned char>(byte) >> 4U], kDigits[static_cast<unsigned char>(byte) & 0xFU]};
    }
    text += '"';
  }
  return text;
}

TEST(SigningMachOBundles, SealsNestedCodeByWhatItsSignatureOffers) {
  const test::TemporaryDirectory directory;
  const SampleChain good(directory / "good");
  const SampleChain other(directory / "other", SampleChain::kTeam, {"--defect", "leaf-without-extension"});
  const fs::path application = test::makeSampleApplication(directory.path());
  const fs::path contents = application / "Contents";
  const auto sealed = [&] {
    const auto seal = platform::NSPropertyListSerialization::propertyListWithData(
        platform::Data(test::readFile(contents / "_CodeSignature/CodeResources")));
    return *seal.valueForKey("files2")
                ->valueForKey("MacOS/sample-helper")
                ->valueForKey("requirement")
                ->string();
  };
  good.sign(application);
  EXPECT_THAT(sealed(), testing::HasSubstr("anchor apple generic"));
  other.sign(application);
  EXPECT_THAT(sealed(),
              testing::MatchesRegex("identifier \"sample-helper\" and certificate leaf = H\"[0-9a-f]{40}\""));
  test::runSignBundle({"sign", application, "--ad-hoc"});
  EXPECT_EQ(sealed(), hashesOfSlices(contents / "MacOS/sample-helper"));
}

}  // namespace
