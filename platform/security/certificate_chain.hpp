#pragma once

#include <vector>

#include "platform/crypto/openssl_handles.hpp"
#include "platform/security/certificate.hpp"
#include "platform/security/trust_anchors.hpp"

namespace platform {

/// A store that trusts the anchors and nothing else. Validity periods are not checked: released software
/// outlives its certificate. Of critical extensions that OpenSSL does not know, only the platform's own
/// markers are accepted, those in the arc 1.2.840.113635.100.6; any other makes a certificate invalid (RFC
/// 5280, section 4.2). Throws `Error`.
openssl::Store anchorStore(const TrustAnchors& anchors);

/// The chain from `leaf` to one of the anchors, both included, with certificates from `others` between them.
/// Each certificate is signed by the next. Throws `FormatError` when no such chain can be built.
std::vector<Certificate> chainToAnchor(X509* leaf, STACK_OF(X509) * others, const TrustAnchors& anchors);

}  // namespace platform
