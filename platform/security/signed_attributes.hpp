#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/crypto/openssl_handles.hpp"
#include "platform/security/code_directory.hpp"

namespace platform {

/// The signed attributes of a CMS message with one signer (RFC 5652, section 5.3), read from the signed bytes
/// themselves. OpenSSL's own check encodes the attributes again and sorts their values, which breaks
/// signatures whose signer did not sort them.
class SignedAttributes {
 public:
  /// Throws `FormatError` when the message is malformed, has more or fewer signers than one, or has no signed
  /// attributes.
  static SignedAttributes read(std::string_view message);

  /// The input of the signature: the attributes as a SET OF (RFC 5652, section 5.4), with the message's own
  /// bytes.
  const std::string& signedBytes() const noexcept { return signedBytes_; }

  /// The attribute of that type, or null. Owned by this object. Throws `FormatError` when there are several.
  X509_ATTRIBUTE* find(const ASN1_OBJECT* type) const;

  /// The single value of the attribute of that type, which must have the ASN.1 type `kind`, such as
  /// `V_ASN1_OCTET_STRING`. Null when the attribute is missing, or has several values or one of another type.
  /// Owned by this object. Throws `FormatError` when there are several attributes of the type.
  const void* onlyValue(const ASN1_OBJECT* type, int kind) const;

 private:
  SignedAttributes() = default;

  std::string signedBytes_;
  std::vector<openssl::Attribute> attributes_;
};

/// Checks the attributes that list the digests of all code directories; the signature itself covers only the
/// first. Each such list must name exactly `directories`, and with several directories there must be a list.
/// Throws `FormatError`.
void requireDirectoriesAreSigned(const SignedAttributes& attributes,
                                 const std::vector<CodeDirectory>& directories);

}  // namespace platform
