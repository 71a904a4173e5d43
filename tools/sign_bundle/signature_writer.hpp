#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/sign_bundle/blob_writer.hpp"
#include "tools/sign_bundle/chain_maker.hpp"
#include "tools/sign_bundle/cms_signer.hpp"
#include "tools/sign_bundle/code_digest.hpp"
#include "tools/sign_bundle/code_directory_writer.hpp"
#include "tools/sign_bundle/seal_writer.hpp"

namespace sign_bundle {

/// The components of one signature, and how a seal around the code refers to it.
struct CodeSignature {
  Components components;
  SealedCode sealed;
};

/// How the parts of a signature are made.
struct SignatureOptions {
  /// Weakest first: the first directory is the one in slot 0, the others are its alternates.
  std::vector<DigestAlgorithm> digests = {DigestAlgorithm::sha256};
  MessageOptions message;
};

/// The designated requirement of code, as the content of its slot; an empty set without an identity.
std::string requirementSet(const std::string& identifier, const SigningIdentity* identity);

/// Signs `code`, whose special slots are filled. Without an identity the signature is ad hoc, and the code's
/// flags should say so.
CodeSignature signCode(const CodeDescription& code, const SigningIdentity* identity,
                       const SignatureOptions& options);

/// An upper bound for the size of `signCode`'s components together, as one blob.
std::size_t largestSignatureSize(const CodeDescription& code, const SigningIdentity* identity,
                                 const SignatureOptions& options);

}  // namespace sign_bundle
