#pragma once

#include <vector>

#include "platform/files/url.hpp"
#include "tools/sign_bundle/openssl_calls.hpp"

/// Certificates and keys in PEM files (RFC 7468). Failures are thrown as `platform::Error`.
namespace sign_bundle {

/// Creates `file`, which must not exist, with the certificates in the given order.
void writeCertificates(const platform::URL& file, const std::vector<X509*>& certificates);
/// Creates `file`, which must not exist, readable by its owner only.
void writeKey(const platform::URL& file, const EVP_PKEY& key);

/// All certificates of the file in order; may be empty.
openssl::Certificates readCertificates(const platform::URL& file);
openssl::Key readKey(const platform::URL& file);

}  // namespace sign_bundle
