#include <gtest/gtest.h>

#include "platform/formats/json.hpp"
#include "tests/helpers/files.hpp"
#include "updater/install/bundle_metadata.hpp"
#include "updater/records/install_plan.hpp"
#include "updater/records/install_status.hpp"
#include "updater/records/installer_error.hpp"

using platform::Data;
using platform::JSONDecoder;
using QuorinOstrevalUpdater::InstallerError;
using QuorinOstrevalUpdater::InstallPlan;
using QuorinOstrevalUpdater::InstallStatus;
using QuorinOstrevalUpdater::Metadata;

namespace {

constexpr const char* kNames[] = {
    "dmgPath",         "targetAppPath", "expectedBundleIdentifier", "expectedTeamIdentifier",
    "expectedVersion", "expectedBuild", "expectedSHA256",           "statusPath"};

/// A plan's text, without one member. The others have their names as values.
std::string planText(std::string_view missing = "") {
  std::string text = "{\"unknown\": 1";
  for (const std::string name : kNames)
    text += name == missing ? "" : ", \"" + name + "\": \" " + name + " \"";
  return text + "}";
}

TEST(RecordsTest, APlanIsReadAsItStandsAndComplete) {
  const InstallPlan expected{
      " dmgPath ",         " targetAppPath ", " expectedBundleIdentifier ", " expectedTeamIdentifier ",
      " expectedVersion ", " expectedBuild ", " expectedSHA256 ",           " statusPath "};
  EXPECT_EQ(JSONDecoder().decode<InstallPlan>(Data(planText())), expected);
  for (const char* name : kNames)
    EXPECT_THROW(JSONDecoder().decode<InstallPlan>(Data(planText(name))), platform::DecodingError) << name;
}

TEST(RecordsTest, AStatusHasTheMembersThatTheApplicationReads) {
  const InstallStatus status{true, "over \"all\"", "2.0"};
  EXPECT_EQ(platform::JSONEncoder().encode(status).bytes(),
            R"({"succeeded":true,"message":"over \"all\"","version":"2.0"})");
  EXPECT_THROW(JSONDecoder().decode<InstallStatus>(Data(R"({"succeeded":1,"message":"","version":""})")),
               platform::DecodingError);
}

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
