#include <gtest/gtest.h>

#include "platform/formats/json.hpp"
#include "updater/records/install_plan.hpp"
#include "updater/records/install_status.hpp"

using platform::Data;
using platform::JSONDecoder;
using QuorinOstrevalUpdater::InstallPlan;
using QuorinOstrevalUpdater::InstallStatus;

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

}  // namespace
