#include "platform/security/cms_signature.hpp"

#include <algorithm>
#include <array>

#include "platform/security/certificate_chain.hpp"
#include "platform/security/security_error.hpp"
#include "platform/security/signed_directories.hpp"
#include "platform/security/time_stamp.hpp"

namespace platform {
namespace {

/// Real ones carry three.
constexpr int kMostCertificates = 32;

openssl::Cms readCMS(std::string_view bytes) {
  const auto* position = reinterpret_cast<const unsigned char*>(bytes.data());
  const auto* end = position + bytes.size();
  openssl::Cms cms(::d2i_CMS_ContentInfo(nullptr, &position, static_cast<long>(bytes.size())));
  if (!cms || position != end || ::OBJ_obj2nid(::CMS_get0_type(cms.get())) != NID_pkcs7_signed)
    throw FormatError("its signature is no signed data");
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

void requireStrongDigest(CMS_SignerInfo* signer) {
  static constexpr std::array kStrong{NID_sha256, NID_sha384, NID_sha512};
  X509_ALGOR* digest = nullptr;
  ::CMS_SignerInfo_get0_algs(signer, nullptr, nullptr, &digest, nullptr);
  const ASN1_OBJECT* object = nullptr;
  ::X509_ALGOR_get0(&object, nullptr, nullptr, digest);
  if (std::find(kStrong.begin(), kStrong.end(), ::OBJ_obj2nid(object)) == kStrong.end())
    throw FormatError("its signature uses a digest that is too weak");
}

/// The signed content is data, and the signer says so.
void requireDataContent(CMS_ContentInfo* cms, CMS_SignerInfo* signer) {
  const auto* type = static_cast<const ASN1_OBJECT*>(
      ::CMS_signed_get0_data_by_OBJ(signer, ::OBJ_nid2obj(NID_pkcs9_contentType), -3, V_ASN1_OBJECT));
  if (type == nullptr || ::OBJ_obj2nid(type) != NID_pkcs7_data ||
      ::OBJ_obj2nid(::CMS_get0_eContentType(cms)) != NID_pkcs7_data)
    throw FormatError("its signature is not over code");
}

}  // namespace

std::vector<Certificate> verifyCMSSignature(std::string_view signature,
                                            const std::vector<CodeDirectory>& directories,
                                            const TrustAnchors& anchors) {
  const openssl::Cms cms = readCMS(signature);
  CMS_SignerInfo* signer = onlySigner(cms.get());
  requireStrongDigest(signer);
  const openssl::Certificates carried(::CMS_get1_certs(cms.get()));
  if (!carried || sk_X509_num(carried.get()) > kMostCertificates)
    throw FormatError("its signature carries no certificates, or too many");

  // The chain is judged below, with the extensions that are known here.
  constexpr unsigned kFlags = CMS_BINARY | CMS_NO_SIGNER_CERT_VERIFY;
  const openssl::Bio content = openssl::bytesStream(directories.front().blob());
  if (::CMS_verify(cms.get(), nullptr, nullptr, content.get(), nullptr, kFlags) != 1)
    throw FormatError("its code directory is not what was signed");
  requireDataContent(cms.get(), signer);
  requireDirectoriesAreSigned(signer, directories);

  const openssl::CertificateList signers(::CMS_get0_signers(cms.get()));
  if (!signers || sk_X509_num(signers.get()) != 1)
    throw FormatError("its signer's certificate is missing");
  std::vector<Certificate> chain = chainToAnchor(sk_X509_value(signers.get(), 0), carried.get(), anchors);
  if (!chain.front().signsCode())
    throw FormatError("its signer's certificate is not for signing code");
  verifyTimeStamps(signer, anchors);
  return chain;
}

}  // namespace platform
