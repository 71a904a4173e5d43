#pragma once

#include <string>
#include <string_view>

namespace sign_bundle {

/// A condition on code, in the requirement language and as a compiled blob.
struct Requirement {
  std::string text;
  std::string blob;
};

/// What later versions of code signed with a Developer ID have to satisfy: its identifier, the platform's
/// anchor, the private extensions of both certificates, and the team in the leaf.
Requirement developerIDRequirement(std::string_view identifier, std::string_view team);

/// The same for code with any other certificate: its identifier, and the very certificate, by its SHA-1
/// digest.
Requirement certificateRequirement(std::string_view identifier, std::string_view certificateDigest);

/// The requirement that nested code without a certificate is sealed with: to be this very code.
std::string codeDirectoryHashRequirementText(std::string_view codeDirectoryHash);

}  // namespace sign_bundle
