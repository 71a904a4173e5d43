#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct x509_st;

namespace platform {

/// An X.509 certificate (RFC 5280). Copies share it.
class Certificate {
 public:
  /// Takes a reference of its own.
  explicit Certificate(x509_st* certificate);

  /// The certificates of a PEM text. Throws `FormatError` when it holds none, or anything that cannot be
  /// read.
  static std::vector<Certificate> fromPEM(std::string_view text);

  bool hasExtension(std::string_view dottedIdentifier) const;

  /// True when the certificate is made for signing code: it says so expressly, and its key may sign.
  bool signsCode() const;

  /// True for a certificate authority that has issued its own certificate.
  bool isRoot() const;

  /// The value of a subject's field, such as "OU", in UTF-8. Nothing when the subject lacks the field or has
  /// it more than once, which leaves open what it means.
  std::optional<std::string> subjectField(std::string_view shortName) const;
  /// True for a name of a field that `subjectField` knows.
  static bool isSubjectField(std::string_view shortName);

  /// The subject's common name, for a sentence.
  std::string displayName() const;

  std::string sha1Fingerprint() const;
  std::string sha256Fingerprint() const;

  x509_st* handle() const noexcept { return certificate_.get(); }

 private:
  std::shared_ptr<x509_st> certificate_;
};

}  // namespace platform
