#include "tools/sign_bundle/cms_signer.hpp"

#include <array>
#include <ctime>
#include <numeric>
#include <set>

#include "platform/formats/property_list.hpp"
#include "platform/security/code_signature_format.hpp"
#include "tools/sign_bundle/code_directory_writer.hpp"
#include "tools/sign_bundle/time_stamper.hpp"

namespace sign_bundle {
namespace {

using platform::DigestAlgorithm;

constexpr const char* kStep = "Signing the code directory";
constexpr std::time_t kDay{86'400};

using Time = openssl::Handle<ASN1_TIME, &::ASN1_TIME_free>;

/// A property list of the code directory hashes.
std::string hashList(const std::vector<SignedCodeDirectory>& directories) {
  using platform::PropertyList;
  PropertyList::Array hashes;
  for (const SignedCodeDirectory& directory : directories)
    hashes.emplace_back(platform::Data(codeDirectoryHash(directory.blob, directory.algorithm)));
  const PropertyList list(PropertyList::Dictionary{{"cdhashes", PropertyList(std::move(hashes))}});
  return std::string(platform::NSPropertyListSerialization::dataWithPropertyList(list).bytes());
}

ASN1_OBJECT* objectOf(DigestAlgorithm algorithm) {
  static constexpr std::array kObjects{NID_sha1, NID_sha256, NID_sha384, NID_sha512};
  return ::OBJ_nid2obj(kObjects.at(static_cast<std::size_t>(algorithm)));
}

/// SEQUENCE { algorithm, OCTET STRING } in DER, the form of an algorithm identifier (RFC 5280, 4.1.1.2).
std::string namedDigest(const SignedCodeDirectory& directory) {
  const std::string digest = digestOf(directory.algorithm, directory.blob);
  auto octets = checked<openssl::OctetString>(::ASN1_OCTET_STRING_new(), kStep);
  succeeded(::ASN1_OCTET_STRING_set(octets.get(), unsignedBytes(digest), static_cast<int>(digest.size())),
            kStep);
  const auto pair = checked<openssl::AlgorithmIdentifier>(::X509_ALGOR_new(), kStep);
  succeeded(::X509_ALGOR_set0(pair.get(), objectOf(directory.algorithm), V_ASN1_OCTET_STRING, octets.get()),
            kStep);
  static_cast<void>(octets.release());  // owned by the pair
  return encoded(*pair, ::i2d_X509_ALGOR, kStep);
}

openssl::Attribute attribute(const ASN1_OBJECT* type, int kind, const std::vector<std::string>& values) {
  auto made = checked<openssl::Attribute>(::X509_ATTRIBUTE_new(), kStep);
  succeeded(::X509_ATTRIBUTE_set1_object(made.get(), type), kStep);
  for (const std::string& value : values)
    succeeded(::X509_ATTRIBUTE_set1_data(made.get(), kind, value.data(), static_cast<int>(value.size())),
              kStep);
  return made;
}

std::time_t momentOf(const ASN1_TIME& time) {
  std::tm fields{};
  succeeded(::ASN1_TIME_to_tm(&time, &fields), "Reading a certificate's validity");
  return ::timegm(&fields);
}

std::time_t statedMoment(const X509& certificate) {
  return std::min(std::time(nullptr), momentOf(*::X509_get0_notAfter(&certificate)) - kDay);
}

void addSigningTime(CMS_SignerInfo& signer, std::time_t moment) {
  const auto time = checked<Time>(::ASN1_TIME_set(nullptr, moment), kStep);
  succeeded(::CMS_signed_add1_attr_by_NID(&signer, NID_pkcs9_signingTime, ::ASN1_STRING_type(time.get()),
                                          time.get(), -1),
            kStep);
}

/// Binds all code directories, in the two lists that signing tools write.
void addBinding(CMS_SignerInfo& signer, const std::vector<SignedCodeDirectory>& directories) {
  const auto hashes = attribute(objectIdentifier(platform::kHashListAttribute).get(), V_ASN1_OCTET_STRING,
                                {hashList(directories)});
  succeeded(::CMS_signed_add1_attr(&signer, hashes.get()), kStep);
  std::vector<std::string> namedDigests;
  namedDigests.reserve(directories.size());
  for (const SignedCodeDirectory& directory : directories)
    namedDigests.push_back(namedDigest(directory));
  const auto digests =
      attribute(objectIdentifier(platform::kDigestSetAttribute).get(), V_ASN1_SEQUENCE, namedDigests);
  succeeded(::CMS_signed_add1_attr(&signer, digests.get()), kStep);
}

std::string signatureValueOf(CMS_SignerInfo& signer) {
  return std::string(openssl::bytesOf(::CMS_SignerInfo_get0_signature(&signer)));
}

CMS_SignerInfo* addSigner(CMS_ContentInfo& message, const Signer& signer, const EVP_MD* digest,
                          unsigned flags) {
  CMS_SignerInfo* added =
      ::CMS_add1_signer(&message, signer.certificate.get(), signer.key.get(), digest, flags);
  if (added == nullptr)
    throw CryptographyError(kStep);
  return added;
}

void setContentType(CMS_ContentInfo& message, int identifier) {
  succeeded(::CMS_set1_eContentType(&message, ::OBJ_nid2obj(identifier)), kStep);
}

void addTimeStamp(CMS_SignerInfo& signer, std::string_view bytes, const Signer& authority, std::time_t moment,
                  std::size_t count) {
  const std::vector<std::string> tokens(count, makeTimeStampToken(bytes, authority, moment));
  const auto token = attribute(::OBJ_nid2obj(NID_id_smime_aa_timeStampToken), V_ASN1_SEQUENCE, tokens);
  succeeded(::CMS_unsigned_add1_attr(&signer, token.get()), "Adding the time stamp");
}

std::string setHeader(std::size_t length) {
  std::array<unsigned char, 8> bytes{};
  unsigned char* end = bytes.data();
  ::ASN1_put_object(&end, 1, static_cast<int>(length), V_ASN1_SET, V_ASN1_UNIVERSAL);
  return {bytes.data(), end};
}

/// Retries until the signature has `length` bytes: the length of an ECDSA signature varies.
std::string signatureOfLength(std::size_t length, std::string_view bytes, EVP_PKEY* key) {
  std::string value;
  do {
    const auto context = checked<openssl::DigestContext>(::EVP_MD_CTX_new(), kStep);
    auto size = static_cast<std::size_t>(::EVP_PKEY_get_size(key));
    value.resize(size);
    succeeded(::EVP_DigestSignInit(context.get(), nullptr, ::EVP_sha256(), nullptr, key), kStep);
    succeeded(::EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(value.data()), &size,
                               unsignedBytes(bytes), bytes.size()),
              kStep);
    value.resize(size);
  } while (value.size() != length);
  return value;
}

void replaceOnce(std::string& text, const std::string& part, const std::string& replacement) {
  const std::size_t place = text.find(part);
  if (place == std::string::npos)
    throw platform::Error("The signature's attributes were not found in the message.");
  text.replace(place, part.size(), replacement);
}

/// The encoded message with the values of the digest attribute in descending order, signed again. OpenSSL
/// always sorts them in ascending order.
std::string withUnsortedDigests(std::string message, CMS_SignerInfo& signer, EVP_PKEY* key,
                                const std::vector<SignedCodeDirectory>& directories) {
  std::multiset<std::string> encodings;
  for (int index = 0; index < ::CMS_signed_get_attr_count(&signer); ++index)
    encodings.insert(encoded(*::CMS_signed_get_attr(&signer, index), ::i2d_X509_ATTRIBUTE, kStep));
  const std::string sorted = std::accumulate(encodings.begin(), encodings.end(), std::string());
  std::multiset<std::string> digests;
  for (const SignedCodeDirectory& directory : directories)
    digests.insert(namedDigest(directory));
  std::string unsorted = sorted;
  replaceOnce(unsorted, std::accumulate(digests.begin(), digests.end(), std::string()),
              std::accumulate(digests.rbegin(), digests.rend(), std::string()));
  replaceOnce(message, sorted, unsorted);
  const std::string value = signatureValueOf(signer);
  replaceOnce(message, value, signatureOfLength(value.size(), setHeader(unsorted.size()) + unsorted, key));
  return message;
}

}  // namespace

std::string signCodeDirectories(const std::vector<SignedCodeDirectory>& directories,
                                const SigningIdentity& identity, const MessageOptions& options) {
  const SignatureDefect defect = options.defect;
  const bool hasAttributes = defect != SignatureDefect::withoutSignedAttributes;
  const unsigned flags = CMS_BINARY | CMS_PARTIAL | CMS_NOSMIMECAP |
                         (defect == SignatureDefect::carriedContent ? 0U : CMS_DETACHED) |
                         (hasAttributes ? 0U : CMS_NOATTR);
  const openssl::Bio content = openssl::bytesStream(directories.front().blob);
  const auto message =
      checked<openssl::Cms>(::CMS_sign(nullptr, nullptr, identity.leaf.chain.get(), nullptr, flags), kStep);
  if (defect == SignatureDefect::otherContentType)
    setContentType(*message, NID_pkcs7_signed);
  CMS_SignerInfo* signer = addSigner(
      *message, identity.leaf, defect == SignatureDefect::weakDigest ? ::EVP_sha1() : ::EVP_sha256(), flags);
  if (defect == SignatureDefect::twoSigners)
    addSigner(*message, identity.timeStampAuthority, ::EVP_sha256(), flags);

  const std::time_t moment = statedMoment(*identity.leaf.certificate);
  if (hasAttributes) {
    addSigningTime(*signer, moment);
    addBinding(*signer, directories);
  }

  succeeded(::CMS_final(message.get(), content.get(), nullptr, flags), kStep);
  if (defect == SignatureDefect::otherContentType)
    setContentType(*message, NID_pkcs7_data);
  const std::string value = signatureValueOf(*signer);
  if (options.timeStamp)
    addTimeStamp(*signer, value, identity.timeStampAuthority, moment, 1);
  if (defect == SignatureDefect::otherTimeStamp)
    // DER sorts the longer attribute behind a good one.
    addTimeStamp(*signer, value + "other", identity.timeStampAuthority, moment, 2);
  std::string result = encoded(*message, ::i2d_CMS_ContentInfo, kStep);
  return defect == SignatureDefect::unsortedDigests
             ? withUnsortedDigests(std::move(result), *signer, identity.leaf.key.get(), directories)
             : result;
}

}  // namespace sign_bundle
