#include "platform/security/static_code.hpp"

#include <cerrno>

#include "platform/security/at_place.hpp"
#include "platform/security/code_check.hpp"

namespace platform {
namespace {

[[noreturn]] void refuseLocation(const URL& location, const std::string& reason) {
  throw SecurityError(errSecCSStaticCodeNotFound,
                      sentence("There is no code at " + platform::quoted(location.path()), reason));
}

Directory parentOf(const URL& location) {
  return Directory::open(location.deletingLastPathComponent(), Directory::Links::followed);
}

/// What the signature of the first architecture claims.
SigningInformation readInformation(const Directory& parent, const std::string& name) {
  const auto read = [&] {
    if (parent.kindOf(name) != ItemKind::directory)
      return readSignedCode(CodeFile(parent.entry(name)), std::nullopt);
    const Bundle bundle = openBundles(parent.subdirectory(name)).front();
    std::optional<Directory> signatures;
    if (bundle.content.kindOf("_CodeSignature"))
      signatures = bundle.content.subdirectory("_CodeSignature");
    return readSignedCode(bundle.openExecutable(), signatures);
  };
  const SignedCode code = read();
  const CodeDirectory& directory = code.slices.front().strongestDirectory();
  return {.identifier = directory.identifier(), .teamIdentifier = directory.teamIdentifier()};
}

}  // namespace

StaticCode StaticCode::atLocation(const URL& location) {
  return atPlace(platform::quoted(location.path()), errSecCSStaticCodeNotFound, [&] {
    const std::optional<URL> resolved = resolvingLinks(location);
    if (!resolved)
      refuseLocation(location, reasonOf(errno));
    const Directory parent = parentOf(*resolved);
    const std::string name = resolved->lastPathComponent();
    const std::optional<ItemKind> kind = parent.kindOf(name);
    if (kind == ItemKind::directory && !hasBundleShape(parent.subdirectory(name)))
      refuseLocation(location, "the directory is not a bundle");
    if (kind != ItemKind::directory && kind != ItemKind::file)
      refuseLocation(location, "it is neither a file nor a directory");
    return StaticCode(*resolved);
  });
}

void StaticCode::checkValidity(const Requirement* requirement, const URL& anchorsDirectory) {
  checked_.reset();
  atPlace(platform::quoted(location_.path()), errSecCSSignatureFailed, [&] {
    CodeCheck check(anchorsDirectory);
    std::optional<SigningInformation> information;
    const auto accept = [&](const CheckedCode& code) {
      if (requirement != nullptr)
        requireSatisfied(code, *requirement, errSecCSReqFailed);
      const CodeIdentity& identity = code.identities.front();
      if (!information)
        information = {identity.identifier, identity.teamIdentifier};
    };
    check.check(parentOf(location_), location_.lastPathComponent(), accept);
    check.finish();
    checked_ = std::move(information);
  });
}

SigningInformation StaticCode::signingInformation() const {
  if (checked_)
    return *checked_;
  return atPlace(platform::quoted(location_.path()), errSecCSSignatureFailed,
                 [&] { return readInformation(parentOf(location_), location_.lastPathComponent()); });
}

}  // namespace platform
