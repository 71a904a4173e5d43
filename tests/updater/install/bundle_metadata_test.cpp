#include "updater/install/bundle_metadata.hpp"

#include <gtest/gtest.h>

#include "tests/helpers/files.hpp"
#include "updater/records/installer_error.hpp"

using QuorinOstrevalUpdater::InstallerError;
using QuorinOstrevalUpdater::Metadata;

namespace {

Metadata metadataOf(const std::string& list) {
  const test::TemporaryDirectory directory;
  if (!list.empty())
    test::writeFile(directory / "A b.app/Contents/Info.plist", list);
  return QuorinOstrevalUpdater::metadata(platform::URL::fileURLWithPath((directory / "A b.app").native()));
}

std::string dictionary(const std::string& members) {
  return "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>" + members + "</dict></plist>";
}

const std::string kIdentifier = "<key>CFBundleIdentifier</key><string> com.example.caf\xC3\xA9 </string>";
const std::string kVersion = "<key>CFBundleShortVersionString</key><string>2.0</string>";
const std::string kBuild = "<key>CFBundleVersion</key><string></string>";

TEST(BundleMetadataTest, ValuesStandAsInTheFile) {
  const Metadata metadata =
      metadataOf(dictionary(kBuild + "<key>Other</key><array/>" + kVersion + kIdentifier));
  EXPECT_EQ(metadata.identifier, " com.example.caf\xC3\xA9 ");
  EXPECT_EQ(metadata.version, "2.0");
  EXPECT_EQ(metadata.build, "");
}

TEST(BundleMetadataTest, EveryDefectIsTheOneError) {
  const std::string cases[] = {
      "",
      "damaged",
      "<plist><array><string>x</string></array></plist>",
      dictionary(kIdentifier + kVersion),
      dictionary(kIdentifier + kBuild),
      dictionary(kVersion + kBuild),
      dictionary(kIdentifier + kVersion + "<key>CFBundleVersion</key><integer>7</integer>"),
      dictionary(kIdentifier + kVersion + kBuild + std::string(1 << 20U, ' '))};
  for (const std::string& list : cases) {
    try {
      metadataOf(list);
      ADD_FAILURE() << list;
    } catch (const InstallerError& error) {
      EXPECT_EQ(error.errorDescription(),
                "The update application is invalid: Info.plist is missing or invalid.");
    }
  }
}

}  // namespace
