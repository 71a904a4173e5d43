#pragma once

#include <string>

#include "platform/formats/coding_key.hpp"
#include "platform/formats/json.hpp"

namespace QuorinOstrevalUpdater {

/// What to install, written by the application: a JSON object with these eight members, all strings, named
/// like the fields. Further members are ignored. Decoding neither checks nor changes a value.
struct InstallPlan {
  std::string dmgPath;                   ///< the downloaded disk image
  std::string targetAppPath;             ///< the installed application bundle, which is replaced
  std::string expectedBundleIdentifier;  ///< of the installed application and of the new one
  std::string expectedTeamIdentifier;    ///< the team that signed both
  std::string expectedVersion;           ///< the new application's version
  std::string expectedBuild;             ///< the new application's build
  std::string expectedSHA256;            ///< the disk image's digest in hexadecimal, in either letter case
  std::string statusPath;                ///< where the status file is written

  enum class CodingKeys {
    dmgPath,
    targetAppPath,
    expectedBundleIdentifier,
    expectedTeamIdentifier,
    expectedVersion,
    expectedBuild,
    expectedSHA256,
    statusPath,
  };
  static constexpr platform::CodingKeySet<CodingKeys, 8> kCodingKeys{
      {"dmgPath", "targetAppPath", "expectedBundleIdentifier", "expectedTeamIdentifier", "expectedVersion",
       "expectedBuild", "expectedSHA256", "statusPath"}};

  /// Throws `platform::DecodingError` for the first member that is missing or not a string.
  static InstallPlan decode(const platform::KeyedDecodingContainer& container);
  void encode(platform::KeyedEncodingContainer& container) const;

  bool operator==(const InstallPlan&) const = default;
};

}  // namespace QuorinOstrevalUpdater
