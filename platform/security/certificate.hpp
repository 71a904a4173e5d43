#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct x509_st;

namespace platform {

/// An X.509 certificate (RFC 5280). Copies share one object.
class Certificate {
 public:
  /// Adds a reference; the caller keeps its own.
  explicit Certificate(x509_st* certificate);

  /// The certificates in PEM text. Throws `FormatError` when it contains none, or one that cannot be read.
  static std::vector<Certificate> fromPEM(std::string_view text);

  /// True when the certificate has an extension of that type, such as "2.5.29.15".
  bool hasExtension(std::string_view dottedIdentifier) const;

  /// True when the extended key usage includes code signing and the key usage allows digital signatures.
  bool signsCode() const;

  /// True for a self-signed certificate of a certificate authority.
  bool isRoot() const;

  /// The value of a subject's field, such as "OU", in UTF-8. Nothing when the subject lacks the field, and
  /// when it has the field more than once, which is ambiguous.
  std::optional<std::string> subjectField(std::string_view shortName) const;
  /// True for a field name that requirements may use.
  static bool isSubjectField(std::string_view shortName);

  /// The last moment of the validity period. Throws `FormatError` when it cannot be read.
  std::chrono::system_clock::time_point expiry() const;

  /// True when the name of this certificate's issuer, and its key where that is given, are those of `issuer`.
  /// The signature is not checked.
  bool namesIssuer(const Certificate& issuer) const;

  /// The subject's common name, for messages.
  std::string displayName() const;

  /// Digests of the DER encoding, as bytes.
  std::string sha1Fingerprint() const;
  std::string sha256Fingerprint() const;

  /// Owned by this object.
  x509_st* handle() const noexcept { return certificate_.get(); }

 private:
  std::shared_ptr<x509_st> certificate_;
};

}  // namespace platform
