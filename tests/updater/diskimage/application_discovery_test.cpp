#include "updater/diskimage/application_discovery.hpp"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/foundation/error.hpp"
#include "tests/support/files.hpp"

namespace fs = std::filesystem;

namespace {

constexpr const char* kIdentifier = "org.quorin.ostreval";

std::string info(const std::string& identifier,
                 const std::string& rest =
                     "<key>CFBundleShortVersionString</key><string>2.0</string>"
                     "<key>CFBundleVersion</key><string>20</string>") {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist "
         "version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" +
         identifier + "</string>" + rest + "</dict></plist>";
}

void makeBundle(const fs::path& bundle, const std::string& content = info(kIdentifier)) {
  test::writeFile(bundle / "Contents/Info.plist", content);
}

/// The path of what is found below `root`, or the sentence of the failure.
std::string find(const fs::path& root, const std::string& identifier = kIdentifier) {
  try {
    const auto found =
        QuorinOstrevalUpdater::findApplication(platform::URL::fileURLWithPath(root.native()), identifier);
    return fs::path(found.path()).lexically_relative(root).native();
  } catch (const platform::Error& error) {
    return error.localizedDescription();
  }
}

const std::string kNone =
    "The update application is invalid: No application with bundle identifier org.quorin.ostreval was found "
    "in the disk "
    "image.";

TEST(ApplicationDiscoveryTest, OnlyExtensionAndIdentifierDecide) {
  struct Case {
    const char* name;
    const char* bundle;
    std::string content;
    std::string found;
  };
  const Case cases[] = {
      {"at the top", "Quorin Ostreval.app", info(kIdentifier), "Quorin Ostreval.app"},
      {"deep down", "a/b.c/d/e/X.app", info(kIdentifier), "a/b.c/d/e/X.app"},
      {"upper case", "X.APP", info(kIdentifier), "X.APP"},
      {"mixed case", "X.aPp", info(kIdentifier), "X.aPp"},
      {"another extension", "X.bundle", info(kIdentifier), kNone},
      {"no extension", "app", info(kIdentifier), kNone},
      {"hidden", ".X.app", info(kIdentifier), kNone},
      {"below a hidden folder", ".hidden/X.app", info(kIdentifier), kNone},
      {"inside another bundle", "Outer.app/Contents/X.app", info(kIdentifier), kNone},
      {"inside another bundle in upper case", "Outer.APP/Contents/X.app", info(kIdentifier), kNone},
      {"other letter case", "X.app", info("org.quorin.Ostreval"), kNone},
      {"a longer identifier", "X.app", info(std::string(kIdentifier) + ".helper"), kNone},
      {"white space", "X.app", info(std::string(kIdentifier) + " "), kNone},
      {"no list", "X.app", "nonsense", kNone},
      {"a key is missing", "X.app", info(kIdentifier, "<key>CFBundleVersion</key><string>20</string>"),
       kNone},
  };
  for (const Case& expected : cases) {
    const test::TemporaryDirectory root;
    makeBundle(root / expected.bundle, expected.content);
    EXPECT_EQ(find(root.path()), expected.found) << expected.name;
  }
}

TEST(ApplicationDiscoveryTest, PassesOverWhatIsNoMatch) {
  const test::TemporaryDirectory root;
  EXPECT_EQ(find(root.path()), kNone);
  EXPECT_EQ(find(root / "missing"), kNone);
  test::writeFile(root / "File.app", "a file");
  fs::create_directory(root / "Empty.app");
  fs::create_symlink("nowhere", root / "Dangling.app");
  makeBundle(root / "Other.app", info("org.other"));
  EXPECT_EQ(find(root.path()), kNone);
  makeBundle(root / "z/Right.app");
  EXPECT_EQ(find(root.path()), "z/Right.app");
}

TEST(ApplicationDiscoveryTest, ALinkIsACandidateAndIsReturnedItself) {
  const test::TemporaryDirectory root;
  const test::TemporaryDirectory elsewhere;
  makeBundle(elsewhere / "Real");
  fs::create_symlink(elsewhere / "Real", root / "Link.app");
  EXPECT_EQ(find(root.path()), "Link.app");
  // But a folder behind a link is not searched.
  const test::TemporaryDirectory other;
  makeBundle(elsewhere / "folder/X.app");
  fs::create_symlink(elsewhere / "folder", other / "folder");
  EXPECT_EQ(find(other.path()), kNone);
}

TEST(ApplicationDiscoveryTest, TheFirstOfTwoIsReturned) {
  const test::TemporaryDirectory root;
  makeBundle(root / "One.app");
  makeBundle(root / "Two.app");
  const std::string found = find(root.path());
  EXPECT_TRUE(found == "One.app" || found == "Two.app") << found;
}

}  // namespace
