#include "platform/security/cms_signature.hpp"

#include <algorithm>

#include "platform/security/certificate_chain.hpp"
#include "platform/security/security_error.hpp"
#include "platform/security/signed_attributes.hpp"

namespace platform {
namespace {

/// Real ones carry three.
constexpr int kMostCertificates = 32;

openssl::Cms readCMS(std::string_view bytes) {
  const auto* position = reinterpret_cast<const unsigned char*>(bytes.data());
  const auto* end = position + bytes.size();
  openssl::Cms cms(::d2i_CMS_ContentInfo(nullptr, &position, static_cast<long>(bytes.size())));
  if (!cms || position != end || ::OBJ_obj2nid(::CMS_get0_type(cms.get())) != NID_pkcs7_signed)
    throw FormatError("its signature is not signed data");
  ASN1_OCTET_STRING** content = ::CMS_get0_content(cms.get());
  if (content == nullptr || *content != nullptr)
    throw FormatError("its signature carries content of its own");
  return cms;
}

CMS_SignerInfo* onlySigner(CMS_ContentInfo* cms) {
  STACK_OF(CMS_SignerInfo)* signers = ::CMS_get0_SignerInfos(cms);
  if (signers == nullptr || sk_CMS_SignerInfo_num(signers) != 1)
    throw FormatError("its signature is not by one signer");
  return sk_CMS_SignerInfo_value(signers, 0);
}

struct StrongDigest {
  DigestAlgorithm algorithm;
  const EVP_MD* method;
};

/// The signer's digest algorithm.
StrongDigest digestOfSigner(CMS_SignerInfo* signer) {
  X509_ALGOR* digest = nullptr;
  ::CMS_SignerInfo_get0_algs(signer, nullptr, nullptr, &digest, nullptr);
  const ASN1_OBJECT* object = nullptr;
  ::X509_ALGOR_get0(&object, nullptr, nullptr, digest);
  switch (::OBJ_obj2nid(object)) {
    case NID_sha256:
      return {DigestAlgorithm::sha256, ::EVP_sha256()};
    case NID_sha384:
      return {DigestAlgorithm::sha384, ::EVP_sha384()};
    case NID_sha512:
      return {DigestAlgorithm::sha512, ::EVP_sha512()};
    default:
      throw FormatError("its signature uses a digest that is too weak");
  }
}

/// The content must have the type "data", in the message and in the signed attributes.
void requireDataContent(CMS_ContentInfo* cms, const SignedAttributes& attributes) {
  const auto* type = static_cast<const ASN1_OBJECT*>(
      attributes.onlyValue(::OBJ_nid2obj(NID_pkcs9_contentType), V_ASN1_OBJECT));
  if (type == nullptr || ::OBJ_obj2nid(type) != NID_pkcs7_data ||
      ::OBJ_obj2nid(::CMS_get0_eContentType(cms)) != NID_pkcs7_data)
    throw FormatError("its signature is not over code");
}

void requireContent(std::string_view content, DigestAlgorithm algorithm, const SignedAttributes& attributes) {
  const auto* digest = static_cast<const ASN1_STRING*>(
      attributes.onlyValue(::OBJ_nid2obj(NID_pkcs9_messageDigest), V_ASN1_OCTET_STRING));
  if (digest == nullptr || openssl::bytesOf(digest) != digestOf(algorithm, content))
    throw FormatError("its code directory is not what was signed");
}

/// The signer's certificate, which must be in the message.
X509* certificateOf(CMS_ContentInfo* cms, CMS_SignerInfo* signer) {
  X509* certificate = nullptr;
  if (::CMS_set1_signers_certs(cms, nullptr, 0) == 1)
    ::CMS_SignerInfo_get0_algs(signer, nullptr, &certificate, nullptr, nullptr);
  if (certificate == nullptr)
    throw FormatError("its signer's certificate is missing");
  return certificate;
}

/// The signer's signature algorithm must be one for keys of the certificate's type.
void requireAlgorithmOf(EVP_PKEY* key, CMS_SignerInfo* signer) {
  X509_ALGOR* algorithm = nullptr;
  ::CMS_SignerInfo_get0_algs(signer, nullptr, nullptr, nullptr, &algorithm);
  const ASN1_OBJECT* object = nullptr;
  ::X509_ALGOR_get0(&object, nullptr, nullptr, algorithm);
  const int named = ::OBJ_obj2nid(object);
  const int kind = key == nullptr ? NID_undef : ::EVP_PKEY_get_base_id(key);
  int kindNamed = NID_undef;
  if (kind == NID_undef ||
      (named != kind && (::OBJ_find_sigid_algs(named, nullptr, &kindNamed) != 1 || kindNamed != kind)))
    throw FormatError("its signature algorithm does not match its signer's key");
}

void requireSignature(CMS_SignerInfo* signer, X509* certificate, const EVP_MD* method,
                      const std::string& signedBytes) {
  EVP_PKEY* key = ::X509_get0_pubkey(certificate);
  requireAlgorithmOf(key, signer);
  const std::string_view signature = openssl::bytesOf(::CMS_SignerInfo_get0_signature(signer));
  const auto bytes = [](std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
  };
  const openssl::DigestContext context(::EVP_MD_CTX_new());
  if (!context || ::EVP_DigestVerifyInit(context.get(), nullptr, method, nullptr, key) != 1 ||
      ::EVP_DigestVerify(context.get(), bytes(signature), signature.size(), bytes(signedBytes),
                         signedBytes.size()) != 1)
    throw FormatError("its signature does not match its signer's certificate");
}

[[noreturn]] void refuseTimeStamp() {
  throw FormatError("its time stamp is not valid");
}

/// The context takes ownership of both.
void fill(TS_VERIFY_CTX* context, openssl::Bio data, openssl::Store store) {
#if OPENSSL_VERSION_PREREQ(3, 4)
  ::TS_VERIFY_CTX_set0_data(context, data.release());
  ::TS_VERIFY_CTX_set0_store(context, store.release());
#else
  ::TS_VERIFY_CTX_set_data(context, data.release());
  ::TS_VERIFY_CTX_set_store(context, store.release());
#endif
}

openssl::Pkcs7 readToken(const ASN1_TYPE* value) {
  if (value == nullptr || value->type != V_ASN1_SEQUENCE)
    refuseTimeStamp();
  const std::string_view encoded = openssl::bytesOf(value->value.sequence);
  const auto* position = reinterpret_cast<const unsigned char*>(encoded.data());
  openssl::Pkcs7 token(::d2i_PKCS7(nullptr, &position, static_cast<long>(encoded.size())));
  if (!token)
    refuseTimeStamp();
  return token;
}

void verifyToken(const openssl::Pkcs7& token, std::string_view stamped, const TrustAnchors& anchors) {
  const openssl::TimeStampContext context(::TS_VERIFY_CTX_new());
  if (!context)
    refuseTimeStamp();
  ::TS_VERIFY_CTX_set_flags(context.get(), TS_VFY_VERSION | TS_VFY_SIGNATURE | TS_VFY_DATA);
  fill(context.get(), openssl::bytesStream(stamped), anchorStore(anchors));
  if (::TS_RESP_verify_token(context.get(), token.get()) != 1)
    refuseTimeStamp();
}

/// The time stamps (RFC 3161) on the signature; there may be none.
std::vector<openssl::Pkcs7> timeStamps(CMS_SignerInfo* signer) {
  std::vector<openssl::Pkcs7> tokens;
  const ASN1_OBJECT* kind = ::OBJ_nid2obj(NID_id_smime_aa_timeStampToken);
  for (int place = ::CMS_unsigned_get_attr_by_OBJ(signer, kind, -1); place >= 0;
       place = ::CMS_unsigned_get_attr_by_OBJ(signer, kind, place)) {
    X509_ATTRIBUTE* attribute = ::CMS_unsigned_get_attr(signer, place);
    const int count = ::X509_ATTRIBUTE_count(attribute);
    if (count < 1)
      refuseTimeStamp();
    for (int index = 0; index < count; ++index)
      tokens.push_back(readToken(::X509_ATTRIBUTE_get0_type(attribute, index)));
  }
  return tokens;
}

/// Each time stamp must be over this signature, by an authority whose certificate leads to an anchor.
void verifyTimeStamps(CMS_SignerInfo* signer, const TrustAnchors& anchors) {
  const std::string_view signature = openssl::bytesOf(::CMS_SignerInfo_get0_signature(signer));
  for (const openssl::Pkcs7& token : timeStamps(signer))
    verifyToken(token, signature, anchors);
}

openssl::Certificates carriedCertificates(CMS_ContentInfo* cms) {
  openssl::Certificates carried(::CMS_get1_certs(cms));
  if (!carried || sk_X509_num(carried.get()) > kMostCertificates)
    throw FormatError("its signature carries no certificates, or too many");
  return carried;
}

/// The chain from `leaf` upwards by the issuers' names.
std::vector<Certificate> chainByName(X509* leaf, const openssl::Certificates& carried) {
  std::vector<Certificate> chain{Certificate(leaf)};
  for (int step = 0; step < sk_X509_num(carried.get()) && !chain.back().isRoot(); ++step) {
    for (int index = 0; index < sk_X509_num(carried.get()); ++index) {
      Certificate issuer(sk_X509_value(carried.get(), index));
      if (!chain.back().namesIssuer(issuer))
        continue;
      chain.push_back(std::move(issuer));
      break;
    }
  }
  return chain;
}

}  // namespace

std::vector<Certificate> verifyCMSSignature(std::string_view signature,
                                            const std::vector<CodeDirectory>& directories,
                                            const TrustAnchors& anchors) {
  const openssl::Cms cms = readCMS(signature);
  CMS_SignerInfo* signer = onlySigner(cms.get());
  const StrongDigest digest = digestOfSigner(signer);
  const openssl::Certificates carried = carriedCertificates(cms.get());
  if (::CMS_signed_get_attr_count(signer) < 0)
    throw FormatError("its signature has no signed attributes");
  const SignedAttributes attributes = SignedAttributes::read(signature);
  X509* certificate = certificateOf(cms.get(), signer);
  requireSignature(signer, certificate, digest.method, attributes.signedBytes());
  requireDataContent(cms.get(), attributes);
  requireContent(directories.front().blob(), digest.algorithm, attributes);
  requireDirectoriesAreSigned(attributes, directories);

  std::vector<Certificate> chain = chainToAnchor(certificate, carried.get(), anchors);
  if (!chain.front().signsCode())
    throw FormatError("its signer's certificate is not for signing code");
  verifyTimeStamps(signer, anchors);
  return chain;
}

ClaimedSigner readClaimedSigner(std::string_view signature) {
  const openssl::Cms cms = readCMS(signature);
  CMS_SignerInfo* signer = onlySigner(cms.get());
  ClaimedSigner claimed{
      .chain = chainByName(certificateOf(cms.get(), signer), carriedCertificates(cms.get())), .stamped = {}};
  for (const openssl::Pkcs7& token : timeStamps(signer)) {
    const openssl::TimeStampInformation information(::PKCS7_to_TS_TST_INFO(token.get()));
    if (!information)
      refuseTimeStamp();
    const auto time = openssl::timeOf(::TS_TST_INFO_get_time(information.get()));
    claimed.stamped = std::min(claimed.stamped.value_or(time), time);
  }
  return claimed;
}

}  // namespace platform
