#pragma once

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/ts.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <chrono>
#include <memory>
#include <string_view>

/// Owners of OpenSSL's objects. Every source that uses the library includes this header.
namespace platform::openssl {

/// Keeps the library from loading its configuration file, whose path the environment may override and which
/// could replace the implementation of a digest. Initialised before the first use of the library.
// NOLINTNEXTLINE(cert-err58-cpp): a C function throws nothing
inline const bool kConfigurationIsSkipped = ::OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr) == 1;

template <auto release>
struct Release {
  template <typename Object>
  void operator()(Object* object) const noexcept {
    release(object);
  }
};

template <typename Object, auto release>
using Handle = std::unique_ptr<Object, Release<release>>;

inline void releaseCertificates(STACK_OF(X509) * certificates) noexcept {
  sk_X509_pop_free(certificates, &::X509_free);
}

inline void releaseStack(STACK_OF(X509) * certificates) noexcept {
  sk_X509_free(certificates);
}

inline void releaseElements(STACK_OF(ASN1_TYPE) * elements) noexcept {
  sk_ASN1_TYPE_pop_free(elements, &::ASN1_TYPE_free);
}

using Bio = Handle<BIO, &::BIO_free_all>;
using Cms = Handle<CMS_ContentInfo, &::CMS_ContentInfo_free>;
using Key = Handle<EVP_PKEY, &::EVP_PKEY_free>;
using Certificate = Handle<X509, &::X509_free>;
using Extension = Handle<X509_EXTENSION, &::X509_EXTENSION_free>;
using OctetString = Handle<ASN1_OCTET_STRING, &::ASN1_OCTET_STRING_free>;
using TimeStampInformation = Handle<TS_TST_INFO, &::TS_TST_INFO_free>;
using Object = Handle<ASN1_OBJECT, &::ASN1_OBJECT_free>;
using Pkcs7 = Handle<PKCS7, &::PKCS7_free>;
using Attribute = Handle<X509_ATTRIBUTE, &::X509_ATTRIBUTE_free>;
using DigestContext = Handle<EVP_MD_CTX, &::EVP_MD_CTX_free>;
using AlgorithmIdentifier = Handle<X509_ALGOR, &::X509_ALGOR_free>;
using Store = Handle<X509_STORE, &::X509_STORE_free>;
using StoreContext = Handle<X509_STORE_CTX, &::X509_STORE_CTX_free>;
using TimeStampContext = Handle<TS_VERIFY_CTX, &::TS_VERIFY_CTX_free>;
/// Owns the list and its certificates.
using Certificates = Handle<STACK_OF(X509), &releaseCertificates>;
using Elements = Handle<STACK_OF(ASN1_TYPE), &releaseElements>;
/// Owns the list only.
using CertificateList = Handle<STACK_OF(X509), &releaseStack>;

/// A read-only stream over `bytes`, which must outlive it. Throws `FormatError` for 2 GiB or more.
Bio bytesStream(std::string_view bytes);

/// The object identifier in dotted form, such as "1.2.840.113549"; null if it is malformed.
Object objectIdentifier(std::string_view dotted);

/// Throws `FormatError` when it is malformed.
std::chrono::system_clock::time_point timeOf(const ASN1_TIME* time);

/// The content of `string`, valid as long as it is.
inline std::string_view bytesOf(const ASN1_STRING* string) {
  return {reinterpret_cast<const char*>(::ASN1_STRING_get0_data(string)),
          static_cast<std::size_t>(::ASN1_STRING_length(string))};
}

}  // namespace platform::openssl
