#include "tools/sign_bundle/chain_maker.hpp"

#include <openssl/asn1.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <optional>

#include "platform/files/file_manager.hpp"
#include "tools/sign_bundle/certificate_files.hpp"
#include "tools/sign_bundle/signing_identity.hpp"

namespace sign_bundle {
namespace {

constexpr const char* kCountry = "US";
constexpr const char* kAuthorityName = "Throw-away Certificates for Tests";
/// Private extensions that mark leaves of other kinds.
constexpr const char* kKernelExtensionsMarker = "1.2.840.113635.100.6.1.18";
constexpr const char* kStoreMarker = "1.2.840.113635.100.6.1.7";
constexpr const char* kDevelopmentMarker = "1.2.840.113635.100.6.1.12";
/// Unassigned, and outside of the arc of the platform's markers.
constexpr const char* kUnknownExtension = "1.2.840.113635.100.5.99";

struct Validity {
  const char* from;
  const char* to;
};
constexpr Validity kPresent{"20200101000000Z", "20491231235959Z"};
constexpr Validity kPast{"20100101000000Z", "20141231235959Z"};

struct Subject {
  std::string commonName;
  std::string organization = kAuthorityName;
  std::vector<std::string> organizationalUnits = {};
};

/// In the syntax of OpenSSL's configuration files.
struct ExtensionText {
  const char* name;
  const char* value;
};

struct CertificateRequest {
  Subject subject;
  Validity validity = kPresent;
  std::vector<ExtensionText> extensions;
};

struct Authority {
  openssl::Certificate certificate;
  openssl::Key key;
};

/// A critical private extension with a null value.
ExtensionText marker(const char* identifier) {
  return {identifier, "critical,DER:05:00"};
}

std::vector<ExtensionText> authorityExtensions() {
  return {{"basicConstraints", "critical,CA:TRUE"}, {"keyUsage", "critical,keyCertSign,cRLSign"}};
}

openssl::Key makeKey(KeyKind kind) {
  return checked<openssl::Key>(kind == KeyKind::ellipticCurve
                                   ? EVP_EC_gen("P-256")
                                   : EVP_RSA_gen(kind == KeyKind::weak ? 1024U : 2048U),
                               "Making a key");
}

void addName(X509_NAME& name, const char* field, const std::string& value) {
  if (!value.empty())
    succeeded(::X509_NAME_add_entry_by_txt(&name, field, MBSTRING_UTF8, unsignedBytes(value),
                                           static_cast<int>(value.size()), -1, 0),
              "Naming a certificate's subject");
}

void setSubject(X509& certificate, const Subject& subject) {
  X509_NAME& name = *::X509_get_subject_name(&certificate);
  addName(name, "CN", subject.commonName);
  for (const std::string& unit : subject.organizationalUnits)
    addName(name, "OU", unit);
  addName(name, "O", subject.organization);
  addName(name, "C", kCountry);
}

void setSerialNumber(X509& certificate) {
  std::uint64_t number = 0;
  succeeded(::RAND_bytes(reinterpret_cast<unsigned char*>(&number), sizeof number),
            "Drawing a serial number");
  succeeded(::ASN1_INTEGER_set_uint64(::X509_get_serialNumber(&certificate), number >> 1U),
            "Setting a serial number");
}

void setValidity(X509& certificate, const Validity& validity) {
  succeeded(::ASN1_TIME_set_string_X509(::X509_getm_notBefore(&certificate), validity.from),
            "Setting a validity");
  succeeded(::ASN1_TIME_set_string_X509(::X509_getm_notAfter(&certificate), validity.to),
            "Setting a validity");
}

void addExtension(X509& certificate, X509& issuer, const ExtensionText& text) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, &issuer, &certificate, nullptr, nullptr, 0);
  const auto extension = checked<openssl::Extension>(
      ::X509V3_EXT_nconf(nullptr, &context, text.name, text.value), "Making an extension");
  succeeded(::X509_add_ext(&certificate, extension.get(), -1), "Adding an extension");
}

/// A certificate for `key`, signed by `issuer`; self-signed if that is null.
openssl::Certificate certify(const CertificateRequest& request, const openssl::Key& key,
                             const Authority* issuer) {
  auto certificate = checked<openssl::Certificate>(::X509_new(), "Making a certificate");
  succeeded(::X509_set_version(certificate.get(), X509_VERSION_3), "Making a certificate");
  succeeded(::X509_set_pubkey(certificate.get(), key.get()), "Making a certificate");
  setSerialNumber(*certificate);
  setValidity(*certificate, request.validity);
  setSubject(*certificate, request.subject);
  X509& issuing = issuer == nullptr ? *certificate : *issuer->certificate;
  succeeded(::X509_set_issuer_name(certificate.get(), ::X509_get_subject_name(&issuing)),
            "Making a certificate");
  addExtension(*certificate, issuing, {"subjectKeyIdentifier", "hash"});
  addExtension(*certificate, issuing, {"authorityKeyIdentifier", "keyid"});
  for (const ExtensionText& extension : request.extensions)
    addExtension(*certificate, issuing, extension);
  succeeded(::X509_sign(certificate.get(), issuer == nullptr ? key.get() : issuer->key.get(), ::EVP_sha256()),
            "Signing a certificate");
  return certificate;
}

Authority makeAuthority(const CertificateRequest& request, KeyKind kind, const Authority* issuer) {
  openssl::Key key = makeKey(kind);
  openssl::Certificate certificate = certify(request, key, issuer);
  return {std::move(certificate), std::move(key)};
}

CertificateRequest intermediateRequest(ChainDefect defect) {
  CertificateRequest request{.subject = {"Throw-away Developer ID Certification Authority"},
                             .validity = defect == ChainDefect::expired ? kPast : kPresent,
                             .extensions = authorityExtensions()};
  // Only the certificate that issues the leaf has the marker.
  if (defect == ChainDefect::pathTooLong) {
    request.subject.commonName = "Throw-away Authority for Leaves";
    request.extensions.front().value = "critical,CA:TRUE,pathlen:0";
  } else if (defect != ChainDefect::intermediateWithoutExtension) {
    request.extensions.push_back(marker(kIntermediateMarker));
  }
  if (defect == ChainDefect::unknownCriticalExtensionInIntermediate)
    request.extensions.push_back(marker(kUnknownExtension));
  return request;
}

std::vector<const char*> leafMarkers(LeafKind kind) {
  switch (kind) {
    case LeafKind::kernelExtensions:
      return {kLeafMarker, kKernelExtensionsMarker};
    case LeafKind::store:
      return {kStoreMarker};
    case LeafKind::development:
      return {kDevelopmentMarker};
    default:
      return {kLeafMarker};
  }
}

CertificateRequest leafRequest(const ChainOptions& options, ChainDefect defect) {
  CertificateRequest request{
      .subject = {"Developer ID Application: " + options.name + " (" + options.team + ")",
                  options.name,
                  {options.team}},
      .validity = defect == ChainDefect::expired ? kPast : kPresent,
      .extensions = {
          {"basicConstraints", "critical,CA:FALSE"},
          {"keyUsage", defect == ChainDefect::leafKeyNotForSigning ? "critical,keyAgreement"
                                                                   : "critical,digitalSignature"}}};
  if (defect == ChainDefect::leafWithTwoTeams)
    request.subject.organizationalUnits.emplace_back("OTHERTEAM1");
  if (defect != ChainDefect::leafWithoutUsage)
    request.extensions.push_back({"extendedKeyUsage", defect == ChainDefect::leafWithoutCodeSigningUsage
                                                          ? "critical,emailProtection"
                                                          : "critical,codeSigning"});
  if (defect != ChainDefect::leafWithoutExtension)
    for (const char* identifier : leafMarkers(options.leaf))
      request.extensions.push_back(marker(identifier));
  if (defect == ChainDefect::unknownCriticalExtensionInLeaf)
    request.extensions.push_back(marker(kUnknownExtension));
  return request;
}

/// The issuer of the leaf; null for a self-signed leaf.
const Authority* issuerOfLeaf(ChainDefect defect, const Authority& root, const Authority& intermediate) {
  if (defect == ChainDefect::selfSignedLeaf)
    return nullptr;
  return defect == ChainDefect::withoutIntermediate ? &root : &intermediate;
}

void makeTimeStampAuthority(const platform::URL& directory, const Authority& root, KeyKind kind) {
  const Authority authority = makeAuthority(
      {{"Throw-away Time Stamp Certification Authority"}, kPresent, authorityExtensions()}, kind, &root);
  const Authority signer = makeAuthority(
      {{"Throw-away Time Stamp Signer"},
       kPresent,
       {{"keyUsage", "critical,digitalSignature"}, {"extendedKeyUsage", "critical,timeStamping"}}},
      kind, &authority);
  writeCertificates(directory.appendingPathComponent("time_stamp.pem"), {signer.certificate.get()});
  writeCertificates(directory.appendingPathComponent("time_stamp_chain.pem"),
                    {authority.certificate.get(), root.certificate.get()});
  writeKey(directory.appendingPathComponent("time_stamp_key.pem"), *signer.key);
}

}  // namespace

void makeChain(const platform::URL& directory, const ChainOptions& options) {
  platform::NSFileManager::defaultManager().createDirectoryAtURL(directory,
                                                                 platform::IntermediateDirectories::yes);
  const Authority root =
      makeAuthority({{"Throw-away Root CA"}, kPresent, authorityExtensions()}, options.keys, nullptr);
  const Authority intermediate = makeAuthority(intermediateRequest(options.defect), options.keys, &root);
  const KeyKind leafKey = options.defect == ChainDefect::leafWithWeakKey ? KeyKind::weak : options.keys;
  Authority leaf = makeAuthority(leafRequest(options, options.defect), leafKey,
                                 issuerOfLeaf(options.defect, root, intermediate));

  writeCertificates(directory.appendingPathComponent("root.pem"), {root.certificate.get()});
  std::vector<X509*> above = {intermediate.certificate.get(), root.certificate.get()};
  std::optional<Authority> between;
  if (options.defect == ChainDefect::leafAsIssuer || options.defect == ChainDefect::pathTooLong) {
    // Without the marker, only its basic constraints keep a leaf from issuing certificates.
    between = makeAuthority(options.defect == ChainDefect::pathTooLong
                                ? intermediateRequest(ChainDefect::none)
                                : leafRequest(options, ChainDefect::leafWithoutExtension),
                            options.keys, &intermediate);
    leaf = makeAuthority(leafRequest(options, options.defect), options.keys, &*between);
    above.insert(above.begin(), between->certificate.get());
  }
  if (options.defect == ChainDefect::withoutIntermediate)
    above.erase(above.begin());
  writeCertificates(directory.appendingPathComponent("chain.pem"), above);
  writeCertificates(directory.appendingPathComponent("leaf.pem"), {leaf.certificate.get()});
  writeKey(directory.appendingPathComponent("leaf_key.pem"), *leaf.key);
  makeTimeStampAuthority(directory, root, options.keys);
}

}  // namespace sign_bundle
