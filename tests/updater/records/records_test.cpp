#include <gtest/gtest.h>

#include "platform/foundation/data.hpp"
#include "platform/foundation/json.hpp"
#include "updater/records/install_plan.hpp"
#include "updater/records/install_status.hpp"

using platform::Data;
using platform::DecodingError;
using platform::JSONDecoder;
using platform::JSONEncoder;
using QuorinOstrevalUpdater::InstallPlan;
using QuorinOstrevalUpdater::InstallStatus;

namespace {

constexpr const char* kNames[] = {
    "dmgPath",         "targetAppPath", "expectedBundleIdentifier", "expectedTeamIdentifier",
    "expectedVersion", "expectedBuild", "expectedSHA256",           "statusPath"};

/// A plan's text in which the member `changed` has `value`, or is missing when that is empty.
std::string planText(std::string_view changed = "", const std::string& value = "") {
  std::string text = "{\"unknown\": 1";
  for (const std::string name : kNames) {
    if (name == changed && value.empty())
      continue;
    text += ", \"" + name + "\": " + (name == changed ? value : "\" " + name + " \"");
  }
  return text + "}";
}

TEST(RecordsTest, APlanIsReadAsItStands) {
  const auto plan = JSONDecoder().decode<InstallPlan>(Data(planText()));
  const InstallPlan expected{
      " dmgPath ",         " targetAppPath ", " expectedBundleIdentifier ", " expectedTeamIdentifier ",
      " expectedVersion ", " expectedBuild ", " expectedSHA256 ",           " statusPath "};
  EXPECT_EQ(plan, expected);
  EXPECT_EQ(JSONDecoder().decode<InstallPlan>(JSONEncoder().encode(plan)), plan);
  for (const char* name : kNames)
    EXPECT_NO_THROW(JSONDecoder().decode<InstallPlan>(Data(planText(name, "\"\"")))) << name;
}

TEST(RecordsTest, EveryMemberOfAPlanIsMandatory) {
  for (const char* name : kNames) {
    for (const char* value : {"", "null", "15", "true", "[\"x\"]", "{\"x\": \"y\"}"}) {
      try {
        JSONDecoder().decode<InstallPlan>(Data(planText(name, value)));
        ADD_FAILURE() << name << " as " << value;
      } catch (const DecodingError& error) {
        EXPECT_NE(error.localizedDescription().find(name), std::string::npos) << error.what();
      }
    }
  }
}

TEST(RecordsTest, AStatusIsReadBackUnchanged) {
  const InstallStatus status{true,
                             "\xC3\x9C"
                             "ber \"alles\" \\ \n",
                             "2.0"};
  EXPECT_EQ(JSONDecoder().decode<InstallStatus>(JSONEncoder().encode(status)), status);
  EXPECT_THROW(JSONDecoder().decode<InstallStatus>(Data(R"({"succeeded":1,"message":"","version":""})")),
               DecodingError);
}

}  // namespace
