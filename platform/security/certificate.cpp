#include "platform/security/certificate.hpp"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <array>

#include "platform/crypto/digest.hpp"
#include "platform/crypto/openssl_handles.hpp"
#include "platform/foundation/error.hpp"
#include "platform/security/security_error.hpp"

namespace platform {
namespace {

constexpr std::array<std::string_view, 7> kSubjectFields{"C", "CN", "L", "O", "OU", "ST", "UID"};

std::shared_ptr<x509_st> retained(X509* certificate) {
  ::X509_up_ref(certificate);
  return {certificate, &::X509_free};
}

std::string encoded(X509* certificate) {
  unsigned char* bytes = nullptr;
  const int length = ::i2d_X509(certificate, &bytes);
  if (length < 0)
    throw FormatError("a certificate cannot be encoded");
  std::string result(bytes, bytes + length);
  OPENSSL_free(bytes);
  return result;
}

}  // namespace

Certificate::Certificate(x509_st* certificate) : certificate_(retained(certificate)) {}

std::vector<Certificate> Certificate::fromPEM(std::string_view text) {
  const openssl::Bio stream = openssl::bytesStream(text);
  std::vector<Certificate> certificates;
  ::ERR_clear_error();
  while (X509* read = ::PEM_read_bio_X509(stream.get(), nullptr, nullptr, nullptr)) {
    certificates.emplace_back(read);
    ::X509_free(read);
  }
  const auto reason = ::ERR_GET_REASON(::ERR_peek_last_error());
  ::ERR_clear_error();
  if (certificates.empty() || reason != PEM_R_NO_START_LINE)
    throw FormatError("it does not contain certificates in PEM form");
  return certificates;
}

bool Certificate::hasExtension(std::string_view dottedIdentifier) const {
  const openssl::Object object = openssl::objectIdentifier(dottedIdentifier);
  return object && ::X509_get_ext_by_OBJ(handle(), object.get(), -1) >= 0;
}

bool Certificate::signsCode() const {
  const std::uint32_t flags = ::X509_get_extension_flags(handle());
  const bool mayUseKey = (::X509_get_key_usage(handle()) & KU_DIGITAL_SIGNATURE) != 0;
  return (flags & EXFLAG_XKUSAGE) != 0 && (::X509_get_extended_key_usage(handle()) & XKU_CODE_SIGN) != 0 &&
         mayUseKey;
}

bool Certificate::isRoot() const {
  return ::X509_check_ca(handle()) > 0 && ::X509_self_signed(handle(), 1) == 1;
}

bool Certificate::isSubjectField(std::string_view shortName) {
  return std::find(kSubjectFields.begin(), kSubjectFields.end(), shortName) != kSubjectFields.end();
}

std::optional<std::string> Certificate::subjectField(std::string_view shortName) const {
  const int identifier = ::OBJ_sn2nid(std::string(shortName).c_str());
  X509_NAME* subject = ::X509_get_subject_name(handle());
  const int place = ::X509_NAME_get_index_by_NID(subject, identifier, -1);
  if (place < 0 || ::X509_NAME_get_index_by_NID(subject, identifier, place) >= 0)
    return std::nullopt;
  unsigned char* text = nullptr;
  const int length =
      ::ASN1_STRING_to_UTF8(&text, ::X509_NAME_ENTRY_get_data(::X509_NAME_get_entry(subject, place)));
  if (length < 0)
    return std::nullopt;
  std::string value(text, text + length);
  OPENSSL_free(text);
  return value;
}

std::chrono::system_clock::time_point Certificate::expiry() const {
  return openssl::timeOf(::X509_get0_notAfter(handle()));
}

bool Certificate::namesIssuer(const Certificate& issuer) const {
  return ::X509_check_issued(issuer.handle(), handle()) == X509_V_OK;
}

std::string Certificate::displayName() const {
  return subjectField("CN").value_or("a certificate without a name");
}

std::string Certificate::sha1Fingerprint() const {
  return digestOf(DigestAlgorithm::sha1, encoded(handle()));
}

std::string Certificate::sha256Fingerprint() const {
  return digestOf(DigestAlgorithm::sha256, encoded(handle()));
}

}  // namespace platform
