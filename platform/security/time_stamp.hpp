#pragma once

#include "platform/crypto/openssl_handles.hpp"
#include "platform/security/trust_anchors.hpp"

namespace platform {

/// Verifies every time stamp (RFC 3161) that a signer's signature bears: over that signature, by an authority
/// whose certificate leads to an anchor. A signature without one is fine. Throws `FormatError`.
void verifyTimeStamps(CMS_SignerInfo* signer, const TrustAnchors& anchors);

}  // namespace platform
