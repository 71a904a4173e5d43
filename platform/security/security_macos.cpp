#include <Security/Security.h>

#include <utility>

#include "platform/files/file_descriptor.hpp"
#include "platform/foundation/core_foundation_macos.hpp"
#include "platform/security/security.hpp"

namespace platform {

class StaticCode {
 public:
  explicit StaticCode(Owned<SecStaticCodeRef> code) : object(std::move(code)) {}
  Owned<SecStaticCodeRef> object;
};

class Requirement {
 public:
  explicit Requirement(Owned<SecRequirementRef> requirement) : object(std::move(requirement)) {}
  Owned<SecRequirementRef> object;
};

namespace {

/// The sentence of an error object, which it takes over.
std::optional<Error> errorOf(CFErrorRef object) {
  const Owned<CFErrorRef> error(object);
  if (!error)
    return std::nullopt;
  const Owned<CFStringRef> description(::CFErrorCopyDescription(error.get()));
  const auto text = textOf(description.get());
  return text ? std::optional<Error>(*text) : std::nullopt;
}

/// The outcome of an operation that must not throw: what it is out of memory for counts as a failed check.
template <typename Result, typename Operation>
Result withStatus(Operation&& operation) {
  try {
    return operation();
  } catch (const std::exception&) {
    return {.status = errSecCSSignatureFailed};
  }
}

}  // namespace

SecStaticCodeResult SecStaticCodeCreateWithPath(const URL& path, SecCSFlags flags) {
  return withStatus<SecStaticCodeResult>([&]() -> SecStaticCodeResult {
    const std::string& text = path.path();
    const auto url = allocated(::CFURLCreateFromFileSystemRepresentation(
        nullptr, reinterpret_cast<const UInt8*>(systemPath(path)), static_cast<CFIndex>(text.size()), 0));
    SecStaticCodeRef created = nullptr;
    const OSStatus status = ::SecStaticCodeCreateWithPath(url.get(), flags, &created);
    Owned<SecStaticCodeRef> code(created);
    if (status != errSecSuccess || !code)
      return {.status = status != errSecSuccess ? status : errSecCSStaticCodeNotFound};
    return {.code = std::make_shared<StaticCode>(std::move(code))};
  });
}

SecRequirementResult SecRequirementCreateWithString(const std::string& text, SecCSFlags flags) {
  return withStatus<SecRequirementResult>([&]() -> SecRequirementResult {
    SecRequirementRef created = nullptr;
    const OSStatus status = ::SecRequirementCreateWithString(systemString(text).get(), flags, &created);
    Owned<SecRequirementRef> requirement(created);
    // Without an object the check would be one without a requirement.
    if (status != errSecSuccess || !requirement)
      return {.status = status != errSecSuccess ? status : errSecCSReqInvalid};
    return {.requirement = std::make_shared<const Requirement>(std::move(requirement))};
  });
}

SecValidityResult SecStaticCodeCheckValidityWithErrors(const SecStaticCode& code, SecCSFlags flags,
                                                       const SecRequirement& requirement) {
  return withStatus<SecValidityResult>([&]() -> SecValidityResult {
    CFErrorRef error = nullptr;
    const OSStatus status = ::SecStaticCodeCheckValidityWithErrors(
        code->object.get(), flags, requirement ? requirement->object.get() : nullptr, &error);
    return {.status = status, .error = errorOf(error)};
  });
}

SecSigningInformationResult SecCodeCopySigningInformation(const SecStaticCode& code, SecCSFlags flags) {
  return withStatus<SecSigningInformationResult>([&]() -> SecSigningInformationResult {
    CFDictionaryRef copied = nullptr;
    const OSStatus status = ::SecCodeCopySigningInformation(code->object.get(), flags, &copied);
    const Owned<CFDictionaryRef> information(copied);
    if (status != errSecSuccess || !information ||
        ::CFGetTypeID(information.get()) != ::CFDictionaryGetTypeID())
      return {.status = status};
    PropertyList::Dictionary texts;
    const auto take = [&](const char* key, CFStringRef systemKey) {
      if (auto text = textOf(::CFDictionaryGetValue(information.get(), systemKey)))
        texts.emplace(key, *std::move(text));
    };
    take(kSecCodeInfoIdentifier, ::kSecCodeInfoIdentifier);
    take(kSecCodeInfoTeamIdentifier, ::kSecCodeInfoTeamIdentifier);
    return {.information = PropertyList(std::move(texts))};
  });
}

}  // namespace platform
