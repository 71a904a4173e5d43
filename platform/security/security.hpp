#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/files/url.hpp"
#include "platform/formats/property_list.hpp"
#include "platform/security/security_error.hpp"

namespace platform {

/// The static code check: whether code on disk is validly signed and satisfies a requirement, and what its
/// signature says. The trusted roots are those of the installation that the program belongs to.

class StaticCode;
class Requirement;

using SecCSFlags = std::uint32_t;

inline constexpr SecCSFlags kSecCSDefaultFlags = 0;
/// For the validity check, which supports only all three together.
inline constexpr SecCSFlags kSecCSCheckAllArchitectures = 1;
inline constexpr SecCSFlags kSecCSCheckNestedCode = 8;
inline constexpr SecCSFlags kSecCSStrictValidate = 16;
/// For the signing information.
inline constexpr SecCSFlags kSecCSSigningInformation = 2;

/// Keys of the signing information. Both values are strings: the signing identifier, and the team identifier,
/// which is absent when the signature has none.
inline constexpr const char* kSecCodeInfoIdentifier = "identifier";
inline constexpr const char* kSecCodeInfoTeamIdentifier = "teamid";

/// A code object. Copies share the object, which must be used by one thread at a time.
using SecStaticCode = std::shared_ptr<StaticCode>;
/// A compiled requirement. Immutable, so threads may share it.
using SecRequirement = std::shared_ptr<const Requirement>;

// Each operation returns a status, and an object only with `errSecSuccess`. None throws.

struct SecStaticCodeResult {
  OSStatus status = errSecSuccess;
  SecStaticCode code = nullptr;
};

SecStaticCodeResult SecStaticCodeCreateWithPath(const URL& path, SecCSFlags flags);

struct SecRequirementResult {
  OSStatus status = errSecSuccess;
  SecRequirement requirement = nullptr;
};

SecRequirementResult SecRequirementCreateWithString(const std::string& text, SecCSFlags flags);

struct SecValidityResult {
  OSStatus status = errSecSuccess;
  /// What is wrong and where, with every status but success.
  std::optional<Error> error = std::nullopt;
};

/// Checks validity, and the requirement unless it is null. `code` must not be null.
SecValidityResult SecStaticCodeCheckValidityWithErrors(const SecStaticCode& code, SecCSFlags flags,
                                                       const SecRequirement& requirement);

struct SecSigningInformationResult {
  OSStatus status = errSecSuccess;
  std::optional<PropertyList> information = std::nullopt;
};

/// What the last successful check verified, otherwise what the signature claims. `code` must not be null.
SecSigningInformationResult SecCodeCopySigningInformation(const SecStaticCode& code, SecCSFlags flags);

}  // namespace platform
