#pragma once

#include <string>

#include "platform/files/url.hpp"
#include "tools/sign_bundle/openssl_calls.hpp"

namespace sign_bundle {

/// Private extensions that mark the certificates of a Developer ID.
inline constexpr const char* kIntermediateMarker = "1.2.840.113635.100.6.2.6";
inline constexpr const char* kLeafMarker = "1.2.840.113635.100.6.1.13";

/// A certificate with its key and the certificates above it.
struct Signer {
  openssl::Certificate certificate;
  openssl::Key key;
  openssl::Certificates chain;
};

/// Certificates and keys to sign with, from a directory made by `makeChain`.
struct SigningIdentity {
  Signer leaf;
  Signer timeStampAuthority;
  /// The organizational unit of the leaf's subject.
  std::string team;
  /// The leaf's SHA-1 digest.
  std::string leafDigest;
  /// Whether leaf and intermediate have the markers of a Developer ID.
  bool isDeveloperID = false;

  /// Throws `platform::Error`.
  static SigningIdentity read(const platform::URL& directory);
};

}  // namespace sign_bundle
