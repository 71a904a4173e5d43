#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/crypto/openssl_handles.hpp"
#include "platform/security/code_directory.hpp"

namespace platform {

/// The signed attributes of a CMS message with one signer (RFC 5652, section 5.3), read from the very bytes
/// that the signature is over. OpenSSL sorts the values of an attribute when it encodes them anew, which
/// changes the digest of signatures whose signer did not sort them.
class SignedAttributes {
 public:
  /// Reads the attributes of the message's only signer. Throws `FormatError` for a message that has another
  /// number of signers, none of these attributes, or lengths that are not definite.
  static SignedAttributes read(std::string_view message);

  /// What the signature is over: the attributes as a SET OF (RFC 5652, section 5.4), byte for byte as in the
  /// message.
  const std::string& signedBytes() const noexcept { return signedBytes_; }

  /// The attribute of that type, owned by this object, or null. Throws `FormatError` when there are two.
  X509_ATTRIBUTE* find(const ASN1_OBJECT* type) const;

  /// The only value of the attribute of that type if it has the ASN.1 type `kind`, such as
  /// `V_ASN1_OCTET_STRING`; null for a missing attribute, and for one with another number or kind of values.
  /// Throws `FormatError` when there are two attributes of the type.
  const void* onlyValue(const ASN1_OBJECT* type, int kind) const;

 private:
  SignedAttributes() = default;

  std::string signedBytes_;
  std::vector<openssl::Attribute> attributes_;
};

/// Checks the signer's own lists of code directories, which bind those beside the first. Each list that is
/// there names every directory and no other; where there are several directories, one list has to be there.
/// Throws `FormatError`.
void requireDirectoriesAreSigned(const SignedAttributes& attributes,
                                 const std::vector<CodeDirectory>& directories);

}  // namespace platform
