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
  /// The team in the code directories; by default that of the identity, if any.
  std::optional<std::string> team;
  bool hardenedRuntime = false;
  /// Seal nested code by its hash only, which matches one architecture of one version.
  bool withoutRequirements = false;
  /// A property list for the outermost code.
  std::optional<platform::Data> entitlements;
  /// The payload of a component in an unknown slot, as of a later system. Mach-O files only.
  std::optional<platform::Data> laterComponent;
  /// Binary logarithm of the page size; by default 14 for arm64 slices, 12 otherwise.
  std::optional<unsigned> pageSizeExponent;
};

/// Signs bundles, versioned frameworks and bare Mach-O files in the platform's format.
class CodeSigner {
 public:
  /// Signatures are ad hoc if `identity` is null. It outlives the signer.
  CodeSigner(const SigningIdentity* identity, SigningOptions options);

  /// Signs all code nested in `code`, then `code`; replaces existing signatures. `identifier` is that of the
  /// outermost code. The default, also for nested code, comes from the property list or the name of a bare
  /// file. Throws `platform::Error`; nested code may then have been signed.
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
