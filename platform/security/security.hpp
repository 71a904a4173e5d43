#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/files/url.hpp"
#include "platform/formats/property_list.hpp"
#include "platform/security/security_error.hpp"

namespace platform {

/// The static code check: is code on disk validly signed, does it satisfy a requirement, and what does its
/// signature say? The trusted roots are those of the installation that the program belongs to.

class StaticCode;
class Requirement;

using SecCSFlags = std::uint32_t;

inline constexpr SecCSFlags kSecCSDefaultFlags = 0;
/// Of the validity check. The check knows no other way than all three together.
inline constexpr SecCSFlags kSecCSCheckAllArchitectures = 1;
inline constexpr SecCSFlags kSecCSCheckNestedCode = 8;
inline constexpr SecCSFlags kSecCSStrictValidate = 16;
/// Of the signing information.
inline constexpr SecCSFlags kSecCSSigningInformation = 2;

/// Keys of the signing information, each with a text: the signing identifier, and the signing team's
/// identifier, which is missing when the signature names none.
inline constexpr const char* kSecCodeInfoIdentifier = "identifier";
inline constexpr const char* kSecCodeInfoTeamIdentifier = "teamid";

/// A code object. Copies are the same object, which serves one thread at a time.
using SecStaticCode = std::shared_ptr<StaticCode>;
/// A compiled requirement.
using SecRequirement = std::shared_ptr<const Requirement>;

// Every operation gives a status, `errSecSuccess` or another, and an object only with success. None throws.

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
  /// What is wrong and where, on any status but success.
  std::optional<Error> error = std::nullopt;
};

/// Checks validity, and the requirement unless it is null.
SecValidityResult SecStaticCodeCheckValidityWithErrors(const SecStaticCode& code, SecCSFlags flags,
                                                       const SecRequirement& requirement);

struct SecSigningInformationResult {
  OSStatus status = errSecSuccess;
  std::optional<PropertyList> information = std::nullopt;
};

/// Of code that was checked, what the check has verified; else what the signature claims.
SecSigningInformationResult SecCodeCopySigningInformation(const SecStaticCode& code, SecCSFlags flags);

}  // namespace platform
