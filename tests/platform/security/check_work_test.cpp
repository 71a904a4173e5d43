#include "platform/security/check_work.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

#include "platform/security/code_check.hpp"
#include "tests/platform/security/signed_sample.hpp"
#include "tools/sign_bundle/code_directory_writer.hpp"

namespace fs = std::filesystem;

namespace {

using platform::CheckedCode;
using platform::CheckWork;
using platform::CodeCheck;
using platform::CodeDirectory;
using platform::Directory;
using platform::URL;
using test::workshop;
using testing::HasSubstr;

constexpr std::size_t kMebibyte = std::size_t{1} << 20U;

Directory directoryAt(const fs::path& path) {
  return Directory::open(URL::fileURLWithPath(path.native()), Directory::Links::refused);
}

/// A check of the code, which `accept` may reject.
class CountedCheck {
 public:
  explicit CountedCheck(
      const fs::path& code, const CodeCheck::Acceptance& accept = [](const CheckedCode&) {}) {
    try {
      check_.check(directoryAt(code.parent_path()), code.filename(), accept);
      check_.finish();
    } catch (const platform::SecurityError& error) {
      sentence_ = error.localizedDescription();
    }
  }

  const std::string& sentence() const { return sentence_; }
  const CheckWork& work() const { return check_.work(); }

 private:
  CodeCheck check_{URL::fileURLWithPath(workshop().anchors().native())};
  std::string sentence_;
};

TEST(CheckWork, aFileIsDigestedOnceHoweverManyNamesItHas) {
  const fs::path application = workshop().signedPlainApplication();
  const fs::path resources = application / "Contents/Resources";
  test::writeFile(resources / "0", std::string(kMebibyte, 'x'));
  for (int link = 1; link < 200; ++link)
    fs::create_hard_link(resources / "0", resources / std::to_string(link));
  // Each digest takes one pass over the file.
  for (const auto& [digests, passes] : {std::pair{"sha256", 1U}, {"sha1", 1U}}) {
    workshop().chain().sign(application, {"--sealed-hash", digests});
    const CountedCheck check(application);
    EXPECT_EQ(check.sentence(), "");
    EXPECT_GT(check.work().comparedBytes(), kMebibyte);
    EXPECT_LT(check.work().comparedBytes(), (passes + 1) * kMebibyte);
  }
}

TEST(CheckWork, aFileWithTwoSealedDigestsIsRefusedUnderTheWrongName) {
  for (const auto& [kept, replaced] : {std::pair{"a", "b"}, {"b", "a"}}) {
    const fs::path application = workshop().signedPlainApplication();
    const fs::path resources = application / "Contents/Resources";
    test::writeFile(resources / "a", std::string(kMebibyte, 'a'));
    test::writeFile(resources / "b", std::string(kMebibyte, 'b'));
    workshop().chain().sign(application);
    fs::remove(resources / replaced);
    fs::create_hard_link(resources / kept, resources / replaced);
    EXPECT_THAT(CountedCheck(application).sentence(),
                HasSubstr(std::string("/") + replaced + "\" was changed after signing"));
  }
}

/// An application in which 20 others have the same main executable of a mebibyte.
fs::path applicationOfTwins() {
  fs::path application = workshop().signedPlainApplication();
  const fs::path helpers = application / "Contents/Helpers";
  for (int number = 0; number < 20; ++number) {
    const std::string name = std::to_string(number);
    const fs::path contents = helpers / (name + ".app") / "Contents";
    test::writeInfoPlist(contents / "Info.plist", "com.example.twin" + name, "twin", "1", "1");
    fs::create_directory(contents / "MacOS");
    if (number == 0)
      test::writeFile(contents / "MacOS/twin", std::string(kMebibyte, 'x'));
    else
      fs::create_hard_link(helpers / "0.app/Contents/MacOS/twin", contents / "MacOS/twin");
  }
  workshop().chain().sign(application);
  return application;
}

TEST(CheckWork, anExecutableIsDigestedOnceHoweverManyBundlesNameIt) {
  const fs::path application = applicationOfTwins();
  const CountedCheck check(application);
  EXPECT_EQ(check.sentence(), "");
  EXPECT_GT(check.work().comparedBytes(), kMebibyte);
  EXPECT_LT(check.work().comparedBytes(), 2 * kMebibyte);
}

TEST(CheckWork, anExecutableThatWasExpectedToBeTwoIsRefusedByTheNameThatIsWrong) {
  const fs::path application = applicationOfTwins();
  const fs::path code = application / "Contents/Helpers/3.app/Contents/MacOS";
  const fs::path other = application / "Contents/Helpers/5.app/Contents/MacOS";
  fs::remove(code / "twin");
  test::writeFile(code / "twin", std::string(kMebibyte, 'y'));
  workshop().chain().sign(application);
  ASSERT_EQ(CountedCheck(application).sentence(), "");
  fs::remove(code / "twin");
  fs::create_hard_link(other / "twin", code / "twin");
  EXPECT_THAT(CountedCheck(application).sentence(),
              HasSubstr("/3.app/Contents/MacOS/twin\" was changed after signing"));
}

/// Whether pages of that size of the code are to be compared; nothing when they are refused.
std::optional<CheckWork::Comparison> comparePages(CheckWork& work, const platform::CodeFile& file,
                                                  unsigned exponent) {
  const std::string content = file.read(0, file.size());
  sign_bundle::CodeDescription description;
  description.identifier = "x";
  description.code = content;
  description.pageSizeExponent = exponent;
  const std::string blob = sign_bundle::makeCodeDirectory(description, platform::DigestAlgorithm::sha256);
  try {
    return work.ofPages(file, {0, file.size()}, CodeDirectory::read(blob));
  } catch (const platform::Error&) {
    return std::nullopt;
  }
}

TEST(CheckWork, codeIsNotDividedIntoPagesInManyWays) {
  const fs::path path = workshop() / "divided";
  test::writeFile(path, std::string(kMebibyte, 'x'));
  fs::create_hard_link(path, workshop() / "divided too");
  const platform::CodeFile file(directoryAt(path.parent_path()).entry(path.filename()));
  CheckWork work;
  for (const unsigned exponent : {0U, 12U, 13U, 14U})
    EXPECT_EQ(comparePages(work, file, exponent), CheckWork::Comparison::needed);
  EXPECT_EQ(comparePages(work, file, 13), CheckWork::Comparison::made);
  EXPECT_EQ(comparePages(work, file, 15), std::nullopt);
}

TEST(CheckWork, whatIsParsedCountsForEveryVersion) {
  const fs::path application = workshop().signedApplication();
  const fs::path versions = application / "Contents/Frameworks/Sample.framework/Versions";
  const fs::path information = application / "Contents/Info.plist";
  const auto parsed = [&] { return CountedCheck(application).work().parsedBytes(); };
  const std::uint64_t usual = parsed();
  test::writeFile(information, test::readFile(information) + std::string(kMebibyte / 2, '\n'));
  workshop().chain().sign(application);
  const std::uint64_t once = parsed();
  EXPECT_GT(once, usual + kMebibyte / 4);
  std::vector<std::uint64_t> counts{once};
  for (const char* version : {"B", "C"}) {
    fs::copy(
        versions / "A", versions / version,
        fs::copy_options::recursive | fs::copy_options::create_hard_links | fs::copy_options::copy_symlinks);
    counts.push_back(parsed());
  }
  EXPECT_GT(counts[1], counts[0]);
  EXPECT_EQ(counts[2] - counts[1], counts[1] - counts[0]);
}

TEST(CheckWork, pathsAndNestedFilesCountToo) {
  constexpr std::uint64_t kItems = 100;
  const std::string name(150, 'n');
  const fs::path application = workshop().signedApplication();
  std::uint64_t before = CountedCheck(application).work().parsedBytes();
  const auto growth = [&] {
    const std::uint64_t now = CountedCheck(application).work().parsedBytes();
    return now - std::exchange(before, now);
  };
  const auto folder = [&](std::uint64_t item) {
    return application / "Contents/Resources" / (std::to_string(item) + name);
  };
  for (std::uint64_t item = 0; item < kItems; ++item)
    fs::create_directory(folder(item));
  EXPECT_GE(growth(), kItems * name.size());
  // Every rule is tried on the path of what is not sealed.
  for (std::uint64_t item = 0; item < kItems; ++item)
    test::writeFile(folder(item) / ".DS_Store", "");
  EXPECT_GE(growth(), 3 * kItems * name.size());
  const fs::path library = application / "Contents/Frameworks/libsample.1.dylib";
  for (std::uint64_t item = 0; item < kItems; ++item)
    fs::copy_file(library, library.parent_path() / ("lib" + std::to_string(item) + ".dylib"));
  workshop().chain().sign(application);
  EXPECT_GE(growth(), kItems * 2048);
}

TEST(CheckWork, tooMuchParsingIsRefused) {
  CheckWork work;
  work.parse("first", 500 * kMebibyte);
  EXPECT_THROW(work.parse("second", 500 * kMebibyte), platform::Error);
}

TEST(CheckWork, codeThatIsNotAcceptedCostsNoDigest) {
  const fs::path application = workshop().signedApplication();
  const CountedCheck check(application, [](const CheckedCode& code) {
    throw platform::SecurityError(platform::errSecCSReqFailed, code.identities.front().identifier);
  });
  EXPECT_EQ(check.sentence(), "com.example.sample");
  EXPECT_EQ(check.work().comparedBytes(), 0U);
}

}  // namespace
