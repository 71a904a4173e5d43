#include "support/code_signature.hpp"

#include "platform/foundation/character_set.hpp"
#include "platform/foundation/text.hpp"
#include "platform/security/security.hpp"

namespace QuorinSupport::CodeSignature {
namespace {

using platform::CharacterSet;
using platform::URL;

constexpr platform::SecCSFlags kValidityFlags =
    platform::kSecCSCheckAllArchitectures | platform::kSecCSCheckNestedCode | platform::kSecCSStrictValidate;

bool isTeam(const std::string& team) {
  const CharacterSet characters = CharacterSet::uppercaseLetters().unionWith(CharacterSet::decimalDigits());
  return !team.empty() &&
         platform::allScalars(team, [&](char32_t scalar) { return characters.contains(scalar); });
}

bool isIdentifier(const std::string& identifier) {
  const CharacterSet characters = CharacterSet::alphanumerics().unionWith(CharacterSet::charactersIn(".-_"));
  return !identifier.empty() && platform::allScalars(identifier, [&](char32_t scalar) {
    return scalar <= 0x7F && characters.contains(scalar);
  });
}

platform::SecRequirement compile(const std::string& requirement) {
  auto compiled = platform::SecRequirementCreateWithString(requirement, platform::kSecCSDefaultFlags);
  if (compiled.status != platform::errSecSuccess)
    throw Failure::invalid("Invalid code requirement.");
  return std::move(compiled.requirement);
}

void checkValidity(const platform::SecStaticCode& code, const platform::SecRequirement& requirement) {
  const auto validity = platform::SecStaticCodeCheckValidityWithErrors(code, kValidityFlags, requirement);
  if (validity.status == platform::errSecSuccess)
    return;
  std::string message =
      validity.error ? validity.error->localizedDescription() : "Code signature validation failed.";
  if (validity.status == platform::errSecCSReqFailed)
    throw Failure::untrusted(std::move(message));
  throw Failure::invalid(std::move(message));
}

/// True for a string that is present and canonically equivalent to the expected one.
bool matches(const std::optional<std::string>& text, const std::string& expected) {
  return text && platform::canonicallyEquivalent(*text, expected);
}

}  // namespace

Failure Failure::invalid(std::string message) {
  const std::string description = message;
  return {Case::invalid, std::move(message), description};
}

Failure Failure::untrusted(std::string message) {
  const std::string description =
      "The code signature is not a Developer ID signature from the expected team: " + message;
  return {Case::untrusted, std::move(message), description};
}

Failure Failure::unreadable() {
  return {Case::unreadable, {}, "Could not read code signature."};
}

std::optional<std::string> developerIDRequirement(const std::string& identifier, const std::string& team) {
  if (!isTeam(team) || !isIdentifier(identifier))
    return std::nullopt;
  return "anchor apple generic"
         " and identifier \"" +
         identifier +
         "\""
         " and certificate 1[field.1.2.840.113635.100.6.2.6] exists"
         " and certificate leaf[field.1.2.840.113635.100.6.1.13] exists"
         " and certificate leaf[subject.OU] = \"" +
         team + "\"";
}

Info validate(const URL& code, const std::optional<std::string>& requirement) {
  const auto object = platform::SecStaticCodeCreateWithPath(code, platform::kSecCSDefaultFlags);
  if (object.status != platform::errSecSuccess || object.code == nullptr)
    throw Failure::unreadable();
  checkValidity(object.code, requirement ? compile(*requirement) : nullptr);
  const auto signing =
      platform::SecCodeCopySigningInformation(object.code, platform::kSecCSSigningInformation);
  if (signing.status != platform::errSecSuccess || !signing.information ||
      signing.information->dictionary() == nullptr)
    throw Failure::invalid("Could not inspect signing identity.");
  return {.identifier = signing.information->stringForKey(platform::kSecCodeInfoIdentifier),
          .teamIdentifier = signing.information->stringForKey(platform::kSecCodeInfoTeamIdentifier)};
}

void validateDeveloperID(const URL& code, const std::string& identifier, const std::string& team) {
  const std::optional<std::string> requirement = developerIDRequirement(identifier, team);
  if (!requirement)
    throw Failure::untrusted("Unexpected bundle or team identifier.");
  const Info info = validate(code, requirement);
  if (!matches(info.identifier, identifier) || !matches(info.teamIdentifier, team))
    throw Failure::untrusted("Identifier or team does not match.");
}

std::string developerIDTeam(const URL& code, const std::string& identifier) {
  const Info info = validate(code, std::nullopt);
  if (!info.teamIdentifier || info.teamIdentifier->empty())
    throw Failure::untrusted("No team identifier.");
  validateDeveloperID(code, identifier, *info.teamIdentifier);
  return *info.teamIdentifier;
}

}  // namespace QuorinSupport::CodeSignature
