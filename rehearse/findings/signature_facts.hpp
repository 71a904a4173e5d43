#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/files/directory.hpp"
#include "platform/files/url.hpp"
#include "platform/security/requirement.hpp"

namespace rehearse {

/// What the signature of a main executable says, without being verified.
struct SignatureFacts {
  std::vector<platform::CodeIdentity> identities;  ///< one for each architecture; not empty
  bool hasHardenedRuntime = true;                  ///< in every architecture
  /// The latest of all architectures; nothing when one has no time stamp.
  std::optional<std::chrono::system_clock::time_point> stamped;
  std::map<std::string, std::string> entitlements;  ///< of the first architecture, the values as text
  bool hasOtherEntitlements = false;                ///< only in a form that is not read here
  /// The compiled designated requirement of the first architecture; empty when it has none of its own.
  std::string designatedRequirement;

  const platform::CodeIdentity& identity() const { return identities.front(); }
  /// The team of the signer's certificate; nothing for code signed ad hoc.
  std::optional<std::string> team() const;
  /// True when the certificates have the marks of a Developer ID.
  bool isDeveloperID() const;
};

/// Reads the signature of a file. `signatures` is its bundle's directory for the signature of an executable
/// that is not a Mach-O file, if it has one. Throws `SecurityError` when there is no signature, or one that
/// cannot be read.
SignatureFacts readSignatureFacts(const platform::URL& file,
                                  const std::optional<platform::Directory>& signatures);

}  // namespace rehearse
