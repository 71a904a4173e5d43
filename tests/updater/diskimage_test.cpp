#include <gtest/gtest.h>

#include <filesystem>

#include "platform/foundation/error.hpp"
#include "tests/helpers/files.hpp"
#include "tests/helpers/program.hpp"
#include "tests/helpers/sample_application.hpp"
#include "updater/diskimage/application_discovery.hpp"
#include "updater/diskimage/file_digest.hpp"
#include "updater/diskimage/mounted_image.hpp"
#include "updater/install/tool_message.hpp"

namespace fs = std::filesystem;
using platform::Data;

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

TEST(FileDigestTest, IsThatOfTheWholeFileAtSizesAroundAChunk) {
  constexpr std::size_t kChunk = 1048576;
  const test::TemporaryDirectory directory;
  const std::string path = (directory / "file").native();
  for (const std::size_t size : {std::size_t{0}, std::size_t{55}, std::size_t{64}, kChunk - 1, kChunk,
                                 kChunk + 1, 2 * kChunk + 4097}) {
    std::string content(size, '\0');
    for (std::size_t index = 0; index < size; ++index)
      content[index] = static_cast<char>(index * 2654435761U >> 13U);
    test::writeFile(path, content);
    const std::string digest = QuorinOstrevalUpdater::sha256(platform::URL::fileURLWithPath(path));
    EXPECT_EQ(digest + "  " + path + "\n", test::runProgram("/usr/bin/sha256sum", {path}).output) << size;
  }
}

/// "place|device" of the image that a tool's output tells of.
std::string imageIn(const std::string& output) {
  const auto image = QuorinOstrevalUpdater::mountedImage(Data(output));
  return image ? image->url.path() + '|' + image->device.value_or("no device") : "no image";
}

std::string list(const std::string& content) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\">" + content + "</plist>";
}

std::string entities(const std::string& content) {
  return list("<dict><key>system-entities</key><array>" + content + "</array></dict>");
}

TEST(MountedImageTest, TheLastEntityWithAMountPointIsTheImage) {
  const std::string unmounted = "<dict><key>dev-entry</key><string>/dev/disk4</string></dict>";
  const std::string mounted =
      "<dict><key>mount-point</key><string>/Volumes/A</string><key>dev-entry</key><string>/dev/disk4s1"
      "</string></dict>";
  const std::string later = "<dict><key>mount-point</key><string>/Volumes/B</string></dict>";
  const std::string oddPlace = "<dict><key>mount-point</key><integer>7</integer></dict>";
  const std::string oddDevice =
      "<dict><key>mount-point</key><string>/C</string><key>dev-entry</key><integer>4</integer></dict>";
  const std::pair<std::string, std::string> cases[] = {
      {entities(mounted), "/Volumes/A|/dev/disk4s1"},
      {entities(later + mounted + unmounted), "/Volumes/A|/dev/disk4s1"},
      {entities(mounted + later), "/Volumes/B|no device"},
      {entities(oddDevice), "/C|no device"},
      {entities(mounted + oddPlace), "no image"},
      {entities("<string>x</string>" + mounted), "no image"},
      {entities(unmounted), "no image"},
      {list("<dict><key>system-entities</key><dict/></dict>"), "no image"},
      {list("<array>" + mounted + "</array>"), "no image"},
      {"hello", "no image"},
  };
  for (const auto& [output, image] : cases)
    EXPECT_EQ(imageIn(output), image) << output;
}

TEST(MountedImageTest, AToolsMessageIsItsTrimmedTextIfItHasOne) {
  for (const auto& [output, message] :
       {std::pair(" \n no room \n", "no room"), {" \n\t", "otherwise"}, {"\xFF\xFE", "otherwise"}})
    EXPECT_EQ(QuorinOstrevalUpdater::text(Data(output), "otherwise"), message);
}

}  // namespace
