#include "updater/diskimage/mounted_image.hpp"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/foundation/error.hpp"
#include "tests/support/files.hpp"
#include "tests/support/program.hpp"

namespace fs = std::filesystem;

namespace {

/// A prefix with a tool that prints what the test wants, and writes down how it was called.
class StandIn {
 public:
  StandIn() {
    fs::create_directories(prefix_ / "bin");
    fs::copy_file(test::buildPrefix() / "tests/image_probe", prefix_ / "bin/image_probe");
    const fs::path tool = prefix_ / "libexec/quorin/hdiutil";
    const std::string root = prefix_.path().native();
    test::writeFile(tool, "#!/bin/sh\nprintf '%s\\n' \"$@\" > " + root + "/arguments\ncat " + root +
                              "/output\ncat " + root + "/errors >&2\nexit $(cat " + root + "/status)\n");
    fs::permissions(tool, fs::perms::owner_all);
  }

  std::string run(const std::vector<std::string>& arguments, const std::string& output,
                  const std::string& errors, int status) {
    test::writeFile(prefix_ / "output", output);
    test::writeFile(prefix_ / "errors", errors);
    test::writeFile(prefix_ / "status", std::to_string(status));
    return test::runProgram(prefix_ / "bin/image_probe", arguments).output;
  }

  std::string arguments() const { return test::readFile(prefix_ / "arguments"); }

 private:
  test::TemporaryDirectory prefix_;
};

std::string list(const std::string& content) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\">" + content + "</plist>";
}

std::string entities(const std::string& content) {
  return list("<dict><key>system-entities</key><array>" + content + "</array></dict>");
}

const std::string kMounted =
    "<dict><key>mount-point</key><string>/Volumes/A</string><key>dev-entry</key><string>/dev/disk4s1</"
    "string></dict>";
const std::string kLater = "<dict><key>mount-point</key><string>/Volumes/B</string></dict>";
const std::string kOddMount =
    "<dict><key>mount-point</key><integer>7</integer><key>dev-entry</key><string>/dev/disk9</string></dict>";
const std::string kOddDevice =
    "<dict><key>mount-point</key><string>/Volumes/C</string><key>dev-entry</key><integer>4</integer></dict>";
const std::string kUnmounted = "<dict><key>dev-entry</key><string>/dev/disk4</string></dict>";

constexpr const char* kFailure = "error: The update DMG is invalid: ";

TEST(MountedImageTest, TheLastEntityWithAMountPointIsTheImage) {
  struct Case {
    const char* name;
    std::string output;
    std::string errors;
    int status;
    std::string result;
  };
  const std::string fallback = std::string(kFailure) + "Could not mount image.";
  const Case cases[] = {
      {"one entity", entities(kMounted), "", 0, "/Volumes/A|/dev/disk4s1"},
      {"noise on standard error", entities(kMounted), "note", 0, "/Volumes/A|/dev/disk4s1"},
      {"unknown keys",
       list("<dict><key>x</key><date>2026-01-01T00:00:00Z</date><key>system-entities</key><array>" +
            kMounted + "</array></dict>"),
       "", 0, "/Volumes/A|/dev/disk4s1"},
      {"the later of two, without a device of its own", entities(kMounted + kLater), "", 0,
       "/Volumes/B|no device"},
      {"an unmounted one behind it", entities(kLater + kMounted + kUnmounted), "", 0,
       "/Volumes/A|/dev/disk4s1"},
      {"a device that is no text", entities(kOddDevice), "", 0, "/Volumes/C|no device"},
      {"a mount point that is no text", entities(kMounted + kOddMount), "", 0, fallback},
      {"an element that is no dictionary, behind", entities(kMounted + "<string>x</string>"), "", 0,
       fallback},
      {"an element that is no dictionary, before", entities("<string>x</string>" + kMounted), "", 0,
       fallback},
      {"no entity is mounted", entities(kUnmounted), "", 0, fallback},
      {"no entity", entities(""), "", 0, fallback},
      {"entities of another type", list("<dict><key>system-entities</key><dict/></dict>"), "", 0, fallback},
      {"no entities", list("<dict/>"), "", 0, fallback},
      {"a root of another type", list("<array>" + kMounted + "</array>"), "", 0, fallback},
      {"no list", "hello", "", 0, fallback},
      {"nothing, with a message", "", " \n no room \n", 0, std::string(kFailure) + "no room"},
      {"a failed tool with a good list", entities(kMounted), "image is busy\n", 1,
       std::string(kFailure) + "image is busy"},
      {"a failed tool with white space", "", " \n\t", 2, fallback},
      {"a failed tool with no valid text", "", "\xFF\xFE", 2, fallback},
  };
  StandIn standIn;
  for (const Case& expected : cases)
    EXPECT_EQ(standIn.run({"attach", "/tmp/an image.dmg"}, expected.output, expected.errors, expected.status),
              expected.result)
        << expected.name;
  EXPECT_EQ(standIn.arguments(), "attach\n-readonly\n-nobrowse\n-plist\n/tmp/an image.dmg\n");
}

TEST(MountedImageTest, DetachesByDeviceElseByMountPoint) {
  StandIn standIn;
  EXPECT_EQ(standIn.run({"detach", "/Volumes/My App", "/dev/disk4s1"}, "", "", 0), "detached");
  EXPECT_EQ(standIn.arguments(), "detach\n/dev/disk4s1\n");
  EXPECT_EQ(standIn.run({"detach", "/Volumes/My App", ""}, "", "", 0), "detached");
  EXPECT_EQ(standIn.arguments(), "detach\n\n");
  EXPECT_EQ(standIn.run({"detach", "/Volumes/My App"}, "", "ignored", 0), "detached");
  EXPECT_EQ(standIn.arguments(), "detach\n/Volumes/My App\n");
  EXPECT_EQ(standIn.run({"detach", "/Volumes/My App"}, "x", "busy\n", 1), std::string(kFailure) + "busy");
  EXPECT_EQ(standIn.run({"detach", "/Volumes/My App"}, "x", "", 1),
            std::string(kFailure) + "Could not detach image.");
}

TEST(MountedImageTest, AttachesAndDetachesARealImage) {
  const test::TemporaryDirectory directory;
  test::writeFile(directory / "content/read me", "hello");
  const std::string image = (directory / "an image.dmg").native();
  const std::string directoryName = directory.path().filename().native();
  const std::string name = "Quorin " + directoryName.substr(directoryName.rfind('-') + 1);
  ASSERT_EQ(test::runProgram(test::buildPrefix() / "bin/make_disk_image",
                             {(directory / "content").native(), name, image})
                .exitStatus,
            0);
  const auto mounted = QuorinOstrevalUpdater::attach(platform::URL::fileURLWithPath(image));
  EXPECT_EQ(mounted.url.lastPathComponent(), name);
  EXPECT_EQ(test::readFile(mounted.url.appendingPathComponent("read me").path()), "hello");
  QuorinOstrevalUpdater::detach(mounted);
  EXPECT_FALSE(fs::exists(mounted.url.path()));
  // By its place alone: its device may be another image's by now.
  EXPECT_THROW(QuorinOstrevalUpdater::detach({mounted.url, std::nullopt}), platform::Error);
}

}  // namespace
