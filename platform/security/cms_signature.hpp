#pragma once

#include <chrono>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/security/certificate.hpp"
#include "platform/security/code_directory.hpp"
#include "platform/security/trust_anchors.hpp"

namespace platform {

/// Verifies a detached CMS signature (RFC 5652) over the code directories of one piece of code, which are
/// given in the order of their slots: the first is the signed content, the signed attributes list the digests
/// of all. Time stamps (RFC 3161), if there are any, must be valid too. The message's `digestAlgorithms`, a
/// hint for one-pass readers, and all other unsigned attributes are ignored.
///
/// `directories` must not be empty. Returns the signer's certificate chain, leaf first and anchor last.
/// Throws `FormatError` when the signature is not valid.
std::vector<Certificate> verifyCMSSignature(std::string_view signature,
                                            const std::vector<CodeDirectory>& directories,
                                            const TrustAnchors& anchors);

/// What a CMS signature claims of its signer.
struct ClaimedSigner {
  std::vector<Certificate> chain;  ///< leaf first, each issued by the next, as far as the message has them
  std::optional<std::chrono::system_clock::time_point> stamped;  ///< the earliest time stamp
};

/// Reads a signature without verifying anything. Throws `FormatError`.
ClaimedSigner readClaimedSigner(std::string_view signature);

}  // namespace platform
