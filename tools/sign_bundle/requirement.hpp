#pragma once

#include <string>
#include <string_view>

namespace sign_bundle {

/// What later versions of code signed with a Developer ID have to satisfy: its identifier, the platform's
/// anchor, the private extensions of both certificates, and the team in the leaf.
std::string developerIDRequirementText(std::string_view identifier, std::string_view team);

/// The same requirement as a compiled blob.
std::string developerIDRequirement(std::string_view identifier, std::string_view team);

/// The requirement that nested code without a certificate is sealed with: to be this very code.
std::string codeDirectoryHashRequirementText(std::string_view codeDirectoryHash);

}  // namespace sign_bundle
