#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/files/url.hpp"
#include "platform/security/requirement.hpp"

namespace platform {

/// The identifiers in a code signature.
struct SigningInformation {
  std::string identifier;
  std::optional<std::string> teamIdentifier;
};

/// Code on disk: a bundle, a framework or a file. An object must be used by one thread at a time; a check
/// itself uses several.
class StaticCode {
 public:
  /// Throws `SecurityError` with the status `errSecCSStaticCodeNotFound` unless a file, or a directory that
  /// looks like a bundle, is at the location. Does not look at the signature.
  static StaticCode atLocation(const URL& location);

  /// Requires that nothing is written to the code meanwhile. Ensures, when it returns, that every
  /// architecture, every sealed resource and all nested code are validly signed, and that the code satisfies
  /// the requirement unless that is null. A signer's certificates must lead to a root in `anchorsDirectory`;
  /// code signed ad hoc has none and is valid.
  ///
  /// Throws `SecurityError`, with the status `errSecCSReqFailed` when the signature is valid and the
  /// requirement is not satisfied. The sealed resources are then not checked: code of another signer costs no
  /// more than reading its signature, and is reported as such even if it is damaged too.
  void checkValidity(const Requirement* requirement, const URL& anchorsDirectory);

  /// What the last check verified, if it succeeded; otherwise read from the disk without verification. Throws
  /// `SecurityError`.
  SigningInformation signingInformation() const;

 private:
  explicit StaticCode(URL location) : location_(std::move(location)) {}

  URL location_;  ///< without symbolic links
  std::optional<SigningInformation> checked_;
};

}  // namespace platform
