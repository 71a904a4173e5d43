#include "platform/security/signed_directories.hpp"

#include <optional>
#include <set>

#include "platform/formats/property_list.hpp"
#include "platform/security/security_error.hpp"

namespace platform {
namespace {

[[noreturn]] void refuse() {
  throw FormatError("its code directories are not those that were signed");
}

PropertyList readList(std::string_view bytes) {
  try {
    return NSPropertyListSerialization::propertyListWithData(Data(std::string(bytes)));
  } catch (const PropertyListError&) {
    refuse();
  }
}

void checkHashList(const ASN1_STRING* text, const std::vector<CodeDirectory>& directories) {
  if (text == nullptr)
    refuse();
  const PropertyList list = readList(openssl::bytesOf(text));
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

void requireDirectoriesAreSigned(const SignedAttributes& attributes,
                                 const std::vector<CodeDirectory>& directories) {
  const openssl::Object hashList = openssl::objectIdentifier(kHashListAttribute);
  X509_ATTRIBUTE* digestSet = attributes.find(openssl::objectIdentifier(kDigestSetAttribute).get());
  const bool hasHashList = attributes.find(hashList.get()) != nullptr;
  if (directories.size() > 1 && !hasHashList && digestSet == nullptr)
    refuse();
  if (hasHashList)
    checkHashList(static_cast<const ASN1_STRING*>(attributes.onlyValue(hashList.get(), V_ASN1_OCTET_STRING)),
                  directories);
  if (digestSet != nullptr)
    checkDigestSet(digestSet, directories);
}

}  // namespace platform
