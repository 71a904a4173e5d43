#include "updater/records/install_plan.hpp"

#include <array>
#include <utility>

namespace QuorinOstrevalUpdater {
namespace {

using Keys = InstallPlan::CodingKeys;

constexpr std::array<std::pair<Keys, std::string InstallPlan::*>, 8> kFields{{
    {Keys::dmgPath, &InstallPlan::dmgPath},
    {Keys::targetAppPath, &InstallPlan::targetAppPath},
    {Keys::expectedBundleIdentifier, &InstallPlan::expectedBundleIdentifier},
    {Keys::expectedTeamIdentifier, &InstallPlan::expectedTeamIdentifier},
    {Keys::expectedVersion, &InstallPlan::expectedVersion},
    {Keys::expectedBuild, &InstallPlan::expectedBuild},
    {Keys::expectedSHA256, &InstallPlan::expectedSHA256},
    {Keys::statusPath, &InstallPlan::statusPath},
}};

}  // namespace

InstallPlan InstallPlan::decode(const platform::KeyedDecodingContainer& container) {
  InstallPlan plan;
  for (const auto& [key, field] : kFields)
    plan.*field = container.decodeString(kCodingKeys.stringValue(key));
  return plan;
}

void InstallPlan::encode(platform::KeyedEncodingContainer& container) const {
  for (const auto& [key, field] : kFields)
    container.encode(kCodingKeys.stringValue(key), this->*field);
}

}  // namespace QuorinOstrevalUpdater
