#include "updater/diskimage/mounted_image.hpp"

#include <gtest/gtest.h>

#include "updater/install/tool_message.hpp"

using platform::Data;

namespace {

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
