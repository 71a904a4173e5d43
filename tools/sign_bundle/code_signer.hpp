#pragma once

#include <optional>
#include <string>

#include "platform/files/data.hpp"
#include "platform/files/url.hpp"
#include "tools/sign_bundle/signature_writer.hpp"

namespace sign_bundle {

struct SigningOptions {
  SignatureOptions signature;
  SealedDigests sealedDigests = SealedDigests::sha256;
  /// The team that code directories state; by default the one in the leaf, and none without an identity.
  std::optional<std::string> team;
  bool hardenedRuntime = false;
  /// Nested code is sealed by its hash alone, which fits one architecture of one version.
  bool withoutRequirements = false;
  /// A property list, for main executables only.
  std::optional<platform::Data> entitlements;
  /// The payload of a component in a slot that is not known, as later systems have them. For Mach-O files.
  std::optional<platform::Data> laterComponent;
  /// The power of two that is a page's size. By default 14 for arm64 slices and 12 for everything else.
  std::optional<unsigned> pageSizeExponent;
};

/// Signs code on disk in the platform's format: application bundles, frameworks with versions, other bundles,
/// and bare Mach-O files.
class CodeSigner {
 public:
  /// Without an identity signatures are ad hoc. `identity` outlives the signer.
  CodeSigner(const SigningIdentity* identity, SigningOptions options);

  /// Signs `code`, and before it all code nested in it. A signature that is there is replaced. `identifier`
  /// stands for the outermost code; without it, and for nested code, the one in the property list does, or a
  /// bare file's name. Throws `platform::Error`; what was signed by then stays signed.
  SealedCode sign(const platform::URL& code, const std::optional<std::string>& identifier) const;

 private:
  enum class Role { outermost, nested };

  SealedCode signItem(const platform::URL& code, const std::optional<std::string>& identifier,
                      Role role) const;
  SealedCode signBundle(const BundleLayout& bundle, const std::string& identifier, Role role) const;
  SealedCode signBareFile(const platform::URL& file, const std::string& identifier, Role role) const;
  SealedCode signMachO(const platform::URL& file, const platform::Data& content,
                       const CodeDescription& common) const;
  CodeDescription describe(const std::string& identifier, Role role) const;

  const SigningIdentity* identity_;
  SigningOptions options_;
};

}  // namespace sign_bundle
