#pragma once

#include <vector>

#include "platform/security/certificate.hpp"
#include "platform/security/openssl_handles.hpp"
#include "platform/security/trust_anchors.hpp"

namespace platform {

/// A store that trusts the anchors and nothing else. It asks for no certificate's time, for a released
/// application outlives its certificate.
openssl::Store anchorStore(const TrustAnchors& anchors);

/// The chain from `leaf` to one of the anchors, both included, built with certificates out of `others`. Every
/// certificate in it is validly signed by the next. Of critical extensions that are not generally known, only
/// those of a Developer ID are let through, each at its place. Throws `FormatError` where there is no such
/// chain.
std::vector<Certificate> chainToAnchor(X509* leaf, STACK_OF(X509) * others, const TrustAnchors& anchors);

}  // namespace platform
