#include "platform/security/signed_directories.hpp"

#include <optional>
#include <set>

#include "platform/foundation/property_list.hpp"
#include "platform/security/security_error.hpp"

namespace platform {
namespace {

constexpr std::string_view kHashListAttribute = "1.2.840.113635.100.9.1";
constexpr std::string_view kDigestSetAttribute = "1.2.840.113635.100.9.2";

[[noreturn]] void refuse() {
  throw FormatError("its code directories are not those that were signed");
}

/// The signed attribute of that type; null when there is none. Two of them are refused.
X509_ATTRIBUTE* signedAttribute(CMS_SignerInfo* signer, std::string_view dotted) {
  const openssl::Object object = openssl::objectIdentifier(dotted);
  const int place = ::CMS_signed_get_attr_by_OBJ(signer, object.get(), -1);
  if (place < 0)
    return nullptr;
  if (::CMS_signed_get_attr_by_OBJ(signer, object.get(), place) >= 0)
    refuse();
  return ::CMS_signed_get_attr(signer, place);
}

void checkHashList(X509_ATTRIBUTE* attribute, const std::vector<CodeDirectory>& directories) {
  const auto* text =
      static_cast<const ASN1_STRING*>(::X509_ATTRIBUTE_get0_data(attribute, 0, V_ASN1_OCTET_STRING, nullptr));
  if (text == nullptr || ::X509_ATTRIBUTE_count(attribute) != 1)
    refuse();
  const PropertyList list =
      NSPropertyListSerialization::propertyListWithData(Data(std::string(openssl::bytesOf(text))));
  const PropertyList* hashes = list.valueForKey("cdhashes");
  if (hashes == nullptr || hashes->array() == nullptr || hashes->array()->size() != directories.size())
    refuse();
  for (std::size_t index = 0; index < directories.size(); ++index) {
    const Data* hash = (*hashes->array())[index].data();
    if (hash == nullptr || hash->bytes() != directories[index].codeDirectoryHash())
      refuse();
  }
}

int identifierOf(const CodeDirectory& directory) {
  switch (directory.algorithm()) {
    case DigestAlgorithm::sha1:
      return NID_sha1;
    case DigestAlgorithm::sha256:
      return NID_sha256;
    case DigestAlgorithm::sha384:
      return NID_sha384;
    default:
      return NID_sha512;
  }
}

using NamedDigest = std::pair<int, std::string>;

/// A pair of an algorithm and a digest has the form of an algorithm identifier (RFC 5280, section 4.1.1.2).
NamedDigest readDigest(const ASN1_TYPE* value) {
  if (value == nullptr || value->type != V_ASN1_SEQUENCE)
    refuse();
  const std::string_view encoded = openssl::bytesOf(value->value.sequence);
  const auto* position = reinterpret_cast<const unsigned char*>(encoded.data());
  const openssl::AlgorithmIdentifier pair(
      ::d2i_X509_ALGOR(nullptr, &position, static_cast<long>(encoded.size())));
  if (!pair)
    refuse();
  const ASN1_OBJECT* algorithm = nullptr;
  int type = V_ASN1_UNDEF;
  const void* digest = nullptr;
  ::X509_ALGOR_get0(&algorithm, &type, &digest, pair.get());
  if (type != V_ASN1_OCTET_STRING)
    refuse();
  return {::OBJ_obj2nid(algorithm), std::string(openssl::bytesOf(static_cast<const ASN1_STRING*>(digest)))};
}

void checkDigestSet(X509_ATTRIBUTE* attribute, const std::vector<CodeDirectory>& directories) {
  const int count = ::X509_ATTRIBUTE_count(attribute);
  std::multiset<NamedDigest> listed;
  for (int index = 0; index < count; ++index)
    listed.insert(readDigest(::X509_ATTRIBUTE_get0_type(attribute, index)));
  std::multiset<NamedDigest> present;
  for (const CodeDirectory& directory : directories)
    present.emplace(identifierOf(directory), directory.fullDigest());
  if (listed != present)
    refuse();
}

}  // namespace

void requireDirectoriesAreSigned(CMS_SignerInfo* signer, const std::vector<CodeDirectory>& directories) {
  X509_ATTRIBUTE* hashList = signedAttribute(signer, kHashListAttribute);
  X509_ATTRIBUTE* digestSet = signedAttribute(signer, kDigestSetAttribute);
  if (directories.size() > 1 && hashList == nullptr && digestSet == nullptr)
    refuse();
  if (hashList != nullptr)
    checkHashList(hashList, directories);
  if (digestSet != nullptr)
    checkDigestSet(digestSet, directories);
}

}  // namespace platform
