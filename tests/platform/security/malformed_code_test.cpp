#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/security/code_blobs.hpp"
#include "platform/security/mach_o.hpp"
#include "tests/helpers/bytes.hpp"
#include "tests/platform/security/memory_source.hpp"
#include "tests/platform/security/signed_sample.hpp"
#include "tools/sign_bundle/blob_writer.hpp"
#include "tools/sign_bundle/universal_file.hpp"

namespace fs = std::filesystem;

namespace {

using platform::FormatError;
using platform::readEmbeddedSignature;
using platform::readMachO;
using test::MemorySource;
using test::workshop;

/// A signed Mach-O file.
fs::path machO(const std::string& name, const std::string& architectures,
               const std::vector<std::string>& options = {}, const std::string& text = "sample") {
  fs::path file = workshop() / name;
  test::runSignBundle({"make-mach-o", file.native(), "--arch", architectures, "--text", text});
  workshop().chain().sign(file, options);
  return file;
}

std::string signatureOf(const std::string& thin) {
  const auto slices = readMachO(MemorySource(thin));
  const platform::ByteRange range = slices->front().signature.value();
  return thin.substr(range.offset, range.length);
}

std::string bigEndian(std::uint32_t value) {
  return test::bigEndian(value, 4);
}

std::string with(std::string bytes, std::size_t offset, std::string_view replacement) {
  return bytes.replace(offset, replacement.size(), replacement);
}

/// The reason why the input is rejected; empty when it is accepted.
template <typename Read>
std::string refusalOf(Read&& read) {
  try {
    read();
    return {};
  } catch (const FormatError& error) {
    return error.reason();
  }
}

struct Change {
  const char* reason;
  std::size_t offset;
  std::string value;
};

TEST(MalformedCode, contradictionsInAMachOFileAreRefused) {
  const std::string thin = test::readFile(machO("contradicting", "x86_64"));
  const std::string fat = test::readFile(machO("contradicting both", "x86_64,arm64"));
  const std::string names = "__info_plist" + std::string(4, '\0') + "__TEXT" + std::string(10, '\0');
  const std::size_t section = thin.find("__text");
  constexpr std::size_t kFirstCommand = 32;
  constexpr std::size_t kSectionSize = 80;
  struct Case {
    const std::string& whole;
    Change change;
  };
  for (const auto& [whole, change] :
       {Case{thin, {"has two signatures", kFirstCommand, std::string("\x1D\0\0\0", 4)}},
        Case{thin, {"is outside the code", section, names + std::string(20, '\xFF')}},
        Case{thin,
             {"has two Info.plist sections", section,
              names + thin.substr(section + names.size(), kSectionSize - names.size()) + names}},
        Case{fat, {"has an architecture twice", 28, fat.substr(8, 8)}},
        Case{fat, {"architectures overlap", 36, fat.substr(16, 4)}},
        Case{fat, {"is not a Mach-O file", readMachO(MemorySource(fat))->front().range.offset, "text"}}})
    EXPECT_THAT(refusalOf([&, &bytes = whole, &at = change.offset, &value = change.value] {
                  readMachO(MemorySource(with(bytes, at, value)));
                }),
                testing::HasSubstr(change.reason));
}

TEST(MalformedCode, componentsNeverShareBytes) {
  const std::string whole = signatureOf(test::readFile(machO("overlapping", "arm64")));
  for (const Change& change : {Change{"a component twice", 20, whole.substr(12, 4)},
                               {"components that overlap", 24, whole.substr(16, 4)},
                               {"a component at an invalid offset", 16, bigEndian(8)}})
    EXPECT_THAT(refusalOf([&] { readEmbeddedSignature(with(whole, change.offset, change.value)); }),
                testing::HasSubstr(change.reason));
}

TEST(MalformedCode, everyArchitectureIsOfTheSameTeam) {
  const test::SampleChain others(workshop() / "others", "OTHERTEAM1");
  fs::copy_file(others.root(), workshop().anchors() / "others.pem");
  const fs::path file = machO("two teams", "x86_64,arm64", {"--identifier", "com.example.tool"});
  auto mine = sign_bundle::UniversalFile::parse(test::readFile(file));
  others.sign(file, {"--identifier", "com.example.tool"});
  EXPECT_TRUE(workshop().judge(file).accepted());
  mine.slices.back() = sign_bundle::UniversalFile::parse(test::readFile(file)).slices.back();
  test::writeFile(file, mine.bytes());
  EXPECT_THAT(workshop().judge(file).sentence, testing::HasSubstr("by another team"));
  fs::remove(workshop().anchors() / "others.pem");
}

TEST(MalformedCode, everyArchitectureSatisfiesTheRequirement) {
  const fs::path file = machO("two identifiers", "x86_64,arm64", {"--identifier", "com.example.tool"});
  auto mine = sign_bundle::UniversalFile::parse(test::readFile(file));
  workshop().chain().sign(file, {"--identifier", "com.example.else"});
  mine.slices.back() = sign_bundle::UniversalFile::parse(test::readFile(file)).slices.back();
  test::writeFile(file, mine.bytes());
  EXPECT_TRUE(workshop().judge(file).accepted());
  EXPECT_EQ(workshop().judge(file, "identifier com.example.tool").status, platform::errSecCSReqFailed);
}

TEST(MalformedCode, pagesOfAnySizeBindEveryByte) {
  const fs::path file = workshop() / "large page";
  test::runSignBundle({"make-mach-o", file.native(), "--arch", "arm64", "--least-size", "600000"});
  for (const char* size : {"unlimited", "4096"}) {
    workshop().chain().sign(file, {"--page-size", size});
    const std::string whole = test::readFile(file);
    EXPECT_TRUE(workshop().judge(file).accepted());
    const std::size_t last = readMachO(MemorySource(whole))->front().signature->offset - 1;
    for (const std::size_t offset : {std::size_t{300'000}, std::size_t{590'000}, last}) {
      test::writeFile(file, with(whole, offset, "x"));
      EXPECT_THAT(workshop().judge(file).sentence, testing::HasSubstr("was changed after signing, at byte"))
          << size << ' ' << offset;
    }
    test::writeFile(file, whole);
  }
}

TEST(MalformedCode, aComponentThatIsAddedIsRefused) {
  const fs::path application = workshop().signedPlainApplication();
  test::writeFile(application / "Contents/_CodeSignature/CodeEntitlements",
                  bigEndian(0xFADE7171) + bigEndian(8));
  EXPECT_THAT(workshop().judge(application).sentence,
              testing::HasSubstr("the list of entitlements was added after signing"));
}

TEST(MalformedCode, everyByteOfAnEmbeddedSignatureBinds) {
  test::writeFile(workshop() / "later", "a component of a later system");
  const fs::path file = machO(
      "bytes", "arm64", {"--hash", "sha1+sha256", "--later-component", (workshop() / "later").native()});
  const std::string whole = test::readFile(file);
  const platform::ByteRange range = readMachO(MemorySource(whole))->front().signature.value();
  const std::string_view signature = std::string_view(whole).substr(range.offset);
  const auto components = readEmbeddedSignature(signature);
  // The bytes of the CMS message have a test of their own.
  const std::size_t end = range.offset + signature.find(components.at(0x10000)) + 8;
  for (std::size_t offset = range.offset; offset < end; ++offset) {
    test::writeFile(file, with(whole, offset, std::string(1, static_cast<char>(whole[offset] ^ 1))));
    EXPECT_FALSE(workshop().judge(file).accepted()) << offset - range.offset;
  }
}

TEST(MalformedCode, anUnknownComponentWithoutADigestIsIgnored) {
  const fs::path file = machO("unknown", "arm64");
  const std::string whole = test::readFile(file);
  const std::string signature = signatureOf(whole);
  auto components = readEmbeddedSignature(signature);
  std::string& message = components.at(platform::slot::kSignature);
  message = sign_bundle::makeBlob(0xFADE0B01, message);
  for (const auto& [number, accepted] : {std::pair{12U, true},
                                         {0xFFFU, true},
                                         {0x1005U, true},
                                         {0x10003U, true},
                                         {4U, false},
                                         {8U, false},
                                         {11U, false},
                                         {0x1001U, false}}) {
    auto more = components;
    more[number] = sign_bundle::makeBlob(number == 8 || number == 11 ? 0xFADE8181 : 0xFADE0001, "unbound");
    std::string other = sign_bundle::makeSuperBlob(0xFADE0CC0, more);
    other.resize(signature.size());
    test::writeFile(file, with(whole, whole.size() - signature.size(), other));
    EXPECT_EQ(workshop().judge(file).accepted(), accepted) << number << workshop().judge(file).sentence;
  }
}

TEST(MalformedCode, codeSignedWithSHA1AloneIsRefused) {
  const fs::path file = machO("weak", "arm64", {"--hash", "sha1+sha256"});
  const std::string whole = test::readFile(file);
  const auto alternate = readEmbeddedSignature(signatureOf(whole)).at(0x1000);
  // Turn the strong directory's index entry into an identification, which no digest covers.
  const std::size_t index =
      whole.find(bigEndian(0x1000), readMachO(MemorySource(whole))->front().signature->offset);
  test::writeFile(file, with(whole, index, bigEndian(0x10001)));
  const test::Verdict verdict = workshop().judge(file);
  EXPECT_THAT(verdict.sentence, testing::HasSubstr("SHA-1"));
}

TEST(MalformedCode, oversizedFilesAreRefusedUnread) {
  constexpr std::uintmax_t kMebibyte = 1U << 20U;
  const fs::path contents = workshop().signedPlainApplication() / "Contents";
  for (const auto& [name, size] : {std::pair{"Info.plist", 2 * kMebibyte},
                                   {"_CodeSignature/CodeResources", 33 * kMebibyte},
                                   {"_CodeSignature/CodeRequirements", 2 * kMebibyte}}) {
    const std::string content = test::readFile(contents / name);
    fs::resize_file(contents / name, size);
    EXPECT_THAT(workshop().judge(contents.parent_path()).sentence, testing::HasSubstr("is too large"))
        << name;
    test::writeFile(contents / name, content);
  }
  test::writeFile(workshop() / "entitlements.plist", std::string(2 * kMebibyte, ' '));
  const fs::path file =
      machO("swollen", "arm64", {"--entitlements", (workshop() / "entitlements.plist").native()});
  EXPECT_THAT(workshop().judge(file).sentence, testing::HasSubstr("signature is too large"));
}

TEST(MalformedCode, theTicketIsIgnored) {
  const std::string ticket = "tckt" + bigEndian(12) + "text";
  const std::string signature =
      bigEndian(0xFADE0CC0) + bigEndian(32) + bigEndian(1) + bigEndian(0x10002) + bigEndian(20) + ticket;
  EXPECT_TRUE(readEmbeddedSignature(signature).empty());
}

TEST(MalformedCode, filesInOtherFormatsAreIgnored) {
  const std::string javaClass = "\xCA\xFE\xBA\xBE" + std::string("\0\0\0\x34", 4) + std::string(64, 'x');
  for (const std::string& bytes :
       {std::string(), std::string("#!/bin/sh\n"), javaClass, std::string(64, '\0')})
    EXPECT_FALSE(readMachO(MemorySource(bytes)).has_value());
}

}  // namespace
