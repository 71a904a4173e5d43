#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/files/url.hpp"
#include "platform/security/requirement.hpp"

namespace platform {

/// What a signature says about itself.
struct SigningInformation {
  std::string identifier;
  std::optional<std::string> teamIdentifier;
};

/// Code on disk: a bundle, a framework or a file. To be used by one thread at a time; a check itself uses
/// several.
class StaticCode {
 public:
  /// Throws `SecurityError` of the status `errSecCSStaticCodeNotFound` when there is no code at the location.
  /// Whether it is signed is left to the check.
  static StaticCode atLocation(const URL& location);

  /// Returns when the code is validly signed, in every architecture and with everything that its signature
  /// seals, nested code included, and satisfies the requirement, if one is given. Code that certificates
  /// vouch for has to lead to a root in `anchorsDirectory`; code signed ad hoc has none.
  ///
  /// Throws `SecurityError`, of the status `errSecCSReqFailed` when the signature is valid and the
  /// requirement is not satisfied. What a bundle's signature seals is not compared then: a bundle of another
  /// signer costs no more than its signature, and one that is damaged besides is reported as not the expected
  /// one.
  void checkValidity(const Requirement* requirement, const URL& anchorsDirectory);

  /// Of the code that was checked last; else read from the disk and not verified. Throws `SecurityError`.
  SigningInformation signingInformation() const;

 private:
  explicit StaticCode(URL location) : location_(std::move(location)) {}

  URL location_;  ///< without a link at its end
  std::optional<SigningInformation> checked_;
};

}  // namespace platform
