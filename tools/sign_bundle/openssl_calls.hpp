#pragma once

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/ts.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <string_view>

#include "platform/foundation/error.hpp"

/// Owners of the cryptographic library's objects, and its failures as thrown values.
namespace sign_bundle {

template <auto function>
struct ReleaseWith {
  template <typename Object>
  void operator()(Object* object) const noexcept {
    function(object);
  }
};
template <typename Object, auto function>
using Owned = std::unique_ptr<Object, ReleaseWith<function>>;

using Key = Owned<EVP_PKEY, EVP_PKEY_free>;
using Certificate = Owned<X509, X509_free>;
using Extension = Owned<X509_EXTENSION, X509_EXTENSION_free>;
using Attribute = Owned<X509_ATTRIBUTE, X509_ATTRIBUTE_free>;
using ObjectIdentifier = Owned<ASN1_OBJECT, ASN1_OBJECT_free>;
using OctetString = Owned<ASN1_OCTET_STRING, ASN1_OCTET_STRING_free>;
using DigestContext = Owned<EVP_MD_CTX, EVP_MD_CTX_free>;
using Stream = Owned<BIO, BIO_free_all>;
using SignedMessage = Owned<CMS_ContentInfo, CMS_ContentInfo_free>;

struct ReleaseCertificates {
  void operator()(STACK_OF(X509) * certificates) const noexcept { sk_X509_pop_free(certificates, X509_free); }
};
using Certificates = std::unique_ptr<STACK_OF(X509), ReleaseCertificates>;

/// A step that the cryptographic library refused. The sentence names the step and the library's reason.
class CryptographyError : public platform::Error {
 public:
  explicit CryptographyError(std::string_view step);
};

/// `object`, which the caller owns; throws for a null pointer.
template <typename Owner>
Owner checked(typename Owner::pointer object, std::string_view step) {
  if (object == nullptr)
    throw CryptographyError(step);
  return Owner(object);
}

/// For calls that report success with a positive number.
inline void succeeded(long result, std::string_view step) {
  if (result <= 0)
    throw CryptographyError(step);
}

ObjectIdentifier objectIdentifier(const char* dottedText);

/// A stream that reads `bytes`, which outlive it.
Stream readingStream(std::string_view bytes);
Stream memoryStream();
std::string contentOf(BIO& memoryStream);

/// The DER form of an object, by the library's own writer for its type.
template <typename Object, typename Write>
std::string encoded(const Object& object, Write write, std::string_view step) {
  unsigned char* bytes = nullptr;
  const int length = write(&object, &bytes);
  if (length < 0)
    throw CryptographyError(step);
  std::string text(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
  OPENSSL_free(bytes);
  return text;
}

inline const unsigned char* unsignedBytes(std::string_view bytes) {
  return reinterpret_cast<const unsigned char*>(bytes.data());
}

}  // namespace sign_bundle
