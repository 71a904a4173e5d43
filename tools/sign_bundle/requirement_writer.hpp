#pragma once

#include <string>
#include <string_view>

#include "tools/sign_bundle/signing_identity.hpp"

namespace sign_bundle {

/// A requirement in the requirement language and as a compiled blob.
struct Requirement {
  std::string text;
  std::string blob;
};

/// What later versions of the code must satisfy. For a Developer ID: its identifier, and a Developer ID of
/// the same team; for any other certificate: its identifier and that certificate, by its SHA-1 digest.
Requirement designatedRequirement(std::string_view identifier, const SigningIdentity& identity);

/// A blob with the designated requirement; an empty set without an identity.
std::string makeRequirementSet(std::string_view identifier, const SigningIdentity* identity);

/// The requirement that seals nested code without a certificate.
std::string codeDirectoryHashRequirementText(std::string_view codeDirectoryHash);

}  // namespace sign_bundle
