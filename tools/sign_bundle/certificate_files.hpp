#pragma once

#include <vector>

#include "platform/files/url.hpp"
#include "tools/sign_bundle/openssl_objects.hpp"

/// Certificates and keys as PEM files (RFC 7468). Failures are thrown as `platform::Error`.
namespace sign_bundle {

/// Creates `file`, which must not exist, with the certificates in their order.
void writeCertificates(const platform::URL& file, const std::vector<X509*>& certificates);
/// Creates `file`, which must not exist, readable by its owner only.
void writeKey(const platform::URL& file, const EVP_PKEY& key);

/// Every certificate of the file in its order; there may be none.
Certificates readCertificates(const platform::URL& file);
Key readKey(const platform::URL& file);

}  // namespace sign_bundle
