#pragma once

#include <string>

#include "platform/formats/coding_key.hpp"
#include "platform/formats/json.hpp"

namespace QuorinOstrevalUpdater {

/// How an update ended, for the application to read: a JSON object whose members are named like the fields.
struct InstallStatus {
  bool succeeded = false;  ///< the application was replaced, and its start has not failed since
  std::string message;     ///< one sentence for a reader
  std::string version;     ///< the plan's expected version, on success and on failure alike

  enum class CodingKeys { succeeded, message, version };
  static constexpr platform::CodingKeySet<CodingKeys, 3> kCodingKeys{{"succeeded", "message", "version"}};

  /// Throws `platform::DecodingError` for the first member that is missing or of another type.
  static InstallStatus decode(const platform::KeyedDecodingContainer& container);
  void encode(platform::KeyedEncodingContainer& container) const;

  bool operator==(const InstallStatus&) const = default;
};

}  // namespace QuorinOstrevalUpdater
