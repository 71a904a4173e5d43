#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/foundation/error.hpp"
#include "tests/support/files.hpp"
#include "tests/support/program.hpp"
#include "tests/support/sample_application.hpp"
#include "tools/sign_bundle/mach_o_image.hpp"
#include "tools/sign_bundle/make_mach_o.hpp"
#include "tools/sign_bundle/universal_file.hpp"

namespace fs = std::filesystem;

namespace {

using test::SampleChain;
using testing::HasSubstr;

struct Case {
  std::string reason;
  std::function<void(const fs::path& contents)> spoil;
};

TEST(Refusals, NameWhatABundleLacks) {
  const std::vector<Case> cases = {
      {"is no Mach-O file",
       [](const fs::path& contents) { test::writeFile(contents / "notes.txt", "text"); }},
      {"has no link to its current version",
       [](const fs::path& contents) {
         fs::create_directories(contents / "Frameworks/F.framework/Versions/A");
       }},
      {"does not lead to a version",
       [](const fs::path& contents) {
         fs::create_directories(contents / "Frameworks/F.framework/Versions/A");
         fs::create_symlink("B", contents / "Frameworks/F.framework/Versions/Current");
       }},
      {"does not name a main executable",
       [](const fs::path& contents) {
         test::writeInfoPlist(contents / "Info.plist", "com.example", "", "1.0", "1");
       }},
      {"does not name a main executable",
       [](const fs::path& contents) {
         test::writeInfoPlist(contents / "Info.plist", "com.example", "../x", "1.0", "1");
       }},
      {"has no bundle identifier",
       [](const fs::path& contents) {
         test::writeInfoPlist(contents / "Info.plist", "", "Sample Application", "1.0", "1");
       }},
      {"no valid property list",
       [](const fs::path& contents) { test::writeFile(contents / "Info.plist", "nonsense"); }},
      {"Sample Application",
       [](const fs::path& contents) { fs::remove(contents / "MacOS/Sample Application"); }},
      {"cut short",
       [](const fs::path& contents) {
         test::writeFile(contents / "MacOS/tool", sign_bundle::makeMachO({}).substr(0, 40));
       }},
  };
  const test::TemporaryDirectory directory;
  const SampleChain chain(directory / "chain");
  for (const Case& refused : cases) {
    SCOPED_TRACE(refused.reason);
    const fs::path application = test::makePlainApplication(directory.path());
    refused.spoil(application / "Contents");
    try {
      chain.sign(application);
      ADD_FAILURE() << "signed all the same";
    } catch (const std::runtime_error& error) {
      EXPECT_THAT(error.what(), HasSubstr(refused.reason));
    }
    fs::remove_all(application);
  }
  EXPECT_THROW(chain.sign(test::makePlainApplication(directory.path()), {"--hash", "sha1+sha256"}),
               std::runtime_error)
      << "a script has room for one digest";
}

TEST(Refusals, CommandLinesThatCannotBeCarriedOut) {
  const std::vector<std::vector<std::string>> lines = {
      {},
      {"verify"},
      {"sign", "x"},
      {"sign", "x", "--ad-hoc", "--chain", "y"},
      {"sign", "x", "y", "--ad-hoc"},
      {"sign", "x", "--ad-hoc", "--hash", "md5"},
      {"sign", "x", "--ad-hoc", "--identifier"},
      {"sign", "x", "--ad-hoc", "--ad-hoc"},
      {"make-chain", "x"},
      {"make-chain", "x", "--team", "T", "--defect", "every"},
      {"make-mach-o", "x", "--arch", "vax"},
      {"make-mach-o", "x", "--arch", "both", "--least-size", "-1"},
  };
  const test::TemporaryDirectory directory;
  for (const auto& line : lines) {
    const auto outcome = test::runProgram(test::buildPrefix() / "tools/sign_bundle/sign_bundle", line);
    EXPECT_EQ(outcome.exitStatus, 64) << testing::PrintToString(line);
    EXPECT_THAT(outcome.error, HasSubstr("sign_bundle make-chain DIRECTORY"));
  }
}

/// What signing does with a file's bytes before it writes anything.
void takeApart(const std::string& bytes) {
  if (!sign_bundle::MachOImage::isMachO(bytes))
    return;
  for (const auto& slice : sign_bundle::UniversalFile::parse(bytes).slices)
    sign_bundle::MachOImage(slice.bytes).announceSignature(1024);
}

TEST(Refusals, MachOFilesCutAtEveryLengthOrContinued) {
  for (const auto& architectures : {std::vector{sign_bundle::Architecture::x86_64},
                                    {sign_bundle::Architecture::x86_64, sign_bundle::Architecture::i386}}) {
    const std::string file = sign_bundle::makeMachO({.architectures = architectures});
    for (std::size_t length = 32; length < file.size(); ++length)
      EXPECT_THROW(takeApart(file.substr(0, length)), platform::Error) << length;
  }
  EXPECT_THROW(takeApart(sign_bundle::makeMachO({}) + "appended"), platform::Error);
}

}  // namespace
