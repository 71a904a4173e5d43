#pragma once

#include <string>
#include <vector>

#include "platform/security/code_signature_format.hpp"
#include "tools/sign_bundle/blob_writer.hpp"
#include "tools/sign_bundle/cms_signer.hpp"
#include "tools/sign_bundle/code_directory_writer.hpp"
#include "tools/sign_bundle/seal_writer.hpp"

namespace sign_bundle {

/// The first slot of no known component.
inline constexpr std::uint32_t kLaterSlot = platform::slot::kLastKnownSpecial + 1;

/// The components of one signature, and the entry for the code in an enclosing seal.
struct CodeSignature {
  Components components;
  SealedCode sealed;
};

struct SignatureOptions {
  /// Weakest first. The first code directory takes slot 0, the others are alternates.
  std::vector<platform::DigestAlgorithm> digests = {platform::DigestAlgorithm::sha256};
  MessageOptions message;
};

/// Signs `code`, whose special slots are filled. Without an identity the signature is ad hoc; the caller sets
/// the flag for that.
CodeSignature signCode(const CodeDescription& code, const SigningIdentity* identity,
                       const SignatureOptions& options);

/// An upper bound of the size of `signCode`'s components in one blob.
std::size_t largestSignatureSize(const CodeDescription& code, const SigningIdentity* identity,
                                 const SignatureOptions& options);

}  // namespace sign_bundle
