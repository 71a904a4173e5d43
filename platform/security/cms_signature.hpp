#pragma once

#include <string_view>
#include <vector>

#include "platform/security/certificate.hpp"
#include "platform/security/code_directory.hpp"
#include "platform/security/trust_anchors.hpp"

namespace platform {

/// Verifies a detached signature in CMS form (RFC 5652) over the code directories of one piece of code, in
/// the order of their slots: over the first one itself, and over all by the digests that the signer has
/// listed. A time stamp (RFC 3161) that comes with it has to be valid too.
/// The message's own list of digests, a hint for reading in one pass, is not read, and of the unsigned
/// attributes only the time stamp is.
///
/// Returns the signer's chain of certificates, leaf first and anchor last. Throws `FormatError` for any other
/// signature.
std::vector<Certificate> verifyCMSSignature(std::string_view signature,
                                            const std::vector<CodeDirectory>& directories,
                                            const TrustAnchors& anchors);

}  // namespace platform
