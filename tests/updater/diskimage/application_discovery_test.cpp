#include "updater/diskimage/application_discovery.hpp"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/foundation/error.hpp"
#include "tests/helpers/files.hpp"
#include "tests/helpers/sample_application.hpp"

namespace fs = std::filesystem;

namespace {

const std::string kIdentifier = "org.quorin.ostreval";

void makeBundle(const fs::path& bundle, const std::string& identifier = kIdentifier) {
  test::writeInfoPlist(bundle / "Contents/Info.plist", identifier, "X", "2.0", "20");
}

/// The path of what is found below `root`, or "none".
std::string find(const fs::path& root) {
  try {
    const auto found =
        QuorinOstrevalUpdater::findApplication(platform::URL::fileURLWithPath(root.native()), kIdentifier);
    return fs::path(found.path()).lexically_relative(root).native();
  } catch (const platform::Error&) {
    return "none";
  }
}

TEST(ApplicationDiscoveryTest, OnlyExtensionAndIdentifierDecide) {
  struct Case {
    const char* bundle;
    std::string identifier;
    bool isFound;
  };
  const Case cases[] = {
      {"Quorin Ostreval.app", kIdentifier, true},
      {"a/b.c/d/e/X.app", kIdentifier, true},
      {"X.aPp", kIdentifier, true},
      {"X.bundle", kIdentifier, false},
      {"app", kIdentifier, false},
      {".X.app", kIdentifier, false},
      {".hidden/X.app", kIdentifier, false},
      {"Outer.APP/Contents/X.app", kIdentifier, false},
      {"X.app", "org.quorin.Ostreval", false},
      {"X.app", kIdentifier + ".helper", false},
      {"X.app", kIdentifier + " ", false},
  };
  for (const auto& [bundle, identifier, isFound] : cases) {
    const test::TemporaryDirectory root;
    makeBundle(root / bundle, identifier);
    EXPECT_EQ(find(root.path()), isFound ? bundle : "none") << identifier;
  }
}

TEST(ApplicationDiscoveryTest, PassesOverWhatIsNoMatch) {
  const test::TemporaryDirectory root;
  EXPECT_EQ(find(root / "missing"), "none");
  test::writeFile(root / "File.app", "a file");
  test::writeFile(root / "Damaged.app/Contents/Info.plist", "nonsense");
  fs::create_symlink("nowhere", root / "Dangling.app");
  EXPECT_EQ(find(root.path()), "none");
  makeBundle(root / "z/Right.app");
  EXPECT_EQ(find(root.path()), "z/Right.app");
}

TEST(ApplicationDiscoveryTest, ALinkIsACandidateAndIsReturnedItself) {
  const test::TemporaryDirectory root;
  const test::TemporaryDirectory elsewhere;
  // A folder behind a link is not searched.
  makeBundle(elsewhere / "folder/X.app");
  fs::create_symlink(elsewhere / "folder", root / "folder");
  EXPECT_EQ(find(root.path()), "none");
  fs::create_symlink(elsewhere / "folder/X.app", root / "Link.app");
  EXPECT_EQ(find(root.path()), "Link.app");
}

}  // namespace
