#include "platform/security/security.hpp"

#include "platform/processes/process.hpp"
#include "platform/security/requirement.hpp"
#include "platform/security/static_code.hpp"

namespace platform {
namespace {

constexpr SecCSFlags kValidityFlags =
    kSecCSCheckAllArchitectures | kSecCSCheckNestedCode | kSecCSStrictValidate;

/// Runs an operation and converts a failure to its status.
template <typename Result, typename Operation>
Result withStatus(Operation&& operation) {
  try {
    return operation();
  } catch (const SecurityError& error) {
    return {.status = error.status()};
  } catch (const std::exception&) {
    return {.status = errSecCSSignatureFailed};
  }
}

}  // namespace

SecStaticCodeResult SecStaticCodeCreateWithPath(const URL& path, SecCSFlags flags) {
  if (flags != kSecCSDefaultFlags)
    return {.status = errSecCSInvalidFlags};
  return withStatus<SecStaticCodeResult>([&] {
    return SecStaticCodeResult{.code = std::make_shared<StaticCode>(StaticCode::atLocation(path))};
  });
}

SecRequirementResult SecRequirementCreateWithString(const std::string& text, SecCSFlags flags) {
  if (flags != kSecCSDefaultFlags)
    return {.status = errSecCSInvalidFlags};
  return withStatus<SecRequirementResult>([&] {
    return SecRequirementResult{.requirement = std::make_shared<const Requirement>(Requirement::parse(text))};
  });
}

SecValidityResult SecStaticCodeCheckValidityWithErrors(const SecStaticCode& code, SecCSFlags flags,
                                                       const SecRequirement& requirement) {
  if (flags != kValidityFlags)
    return {.status = errSecCSInvalidFlags,
            .error = Error("The validity check does not support these flags.")};
  try {
    const URL anchors = installationPrefix().appendingPathComponent("share/quorin/anchors");
    code->checkValidity(requirement.get(), anchors);
    return {};
  } catch (const SecurityError& error) {
    return {.status = error.status(), .error = error};
  } catch (const Error& error) {
    return {.status = errSecCSSignatureFailed, .error = error};
  } catch (const std::exception& error) {
    return {.status = errSecCSSignatureFailed,
            .error = Error(sentence("The code could not be checked", error.what()))};
  }
}

SecSigningInformationResult SecCodeCopySigningInformation(const SecStaticCode& code, SecCSFlags flags) {
  if (flags != kSecCSSigningInformation)
    return {.status = errSecCSInvalidFlags};
  return withStatus<SecSigningInformationResult>([&] {
    const SigningInformation signing = code->signingInformation();
    PropertyList::Dictionary information{{kSecCodeInfoIdentifier, signing.identifier}};
    if (signing.teamIdentifier)
      information.emplace(kSecCodeInfoTeamIdentifier, *signing.teamIdentifier);
    return SecSigningInformationResult{.information = PropertyList(std::move(information))};
  });
}

}  // namespace platform
