#include "platform/security/signed_attributes.hpp"

#include <array>
#include <set>

#include "platform/formats/property_list.hpp"
#include "platform/security/security_error.hpp"

namespace platform {
namespace {

/// Positions in the message's structures (RFC 5652, sections 3, 5.1 and 5.3).
constexpr int kContentOfMessage = 1;
constexpr int kAttributesOfSigner = 3;

[[noreturn]] void refuse() {
  throw FormatError("the signed attributes of its signature cannot be read");
}

struct Element {
  int tag = 0;
  int tagClass = 0;
  std::string_view content;
};

/// Decodes the element that takes up all of `bytes`.
Element elementIn(std::string_view bytes) {
  constexpr int kError = 0x80;
  constexpr int kIndefinite = 0x01;
  constexpr std::size_t kEndMarker = 2;
  const auto* position = reinterpret_cast<const unsigned char*>(bytes.data());
  const auto* const end = position + bytes.size();
  long length = 0;
  Element element;
  const int form =
      ::ASN1_get_object(&position, &length, &element.tag, &element.tagClass, static_cast<long>(bytes.size()));
  if ((form & kError) != 0)
    refuse();
  element.content = {reinterpret_cast<const char*>(position), static_cast<std::size_t>(end - position)};
  if ((form & kIndefinite) == 0) {
    if (static_cast<std::size_t>(length) != element.content.size())
      refuse();
  } else {
    if (element.content.size() < kEndMarker)
      refuse();
    element.content.remove_suffix(kEndMarker);
  }
  return element;
}

using Decode = STACK_OF(ASN1_TYPE) * (*)(STACK_OF(ASN1_TYPE) **, const unsigned char**, long);

/// The elements of the SEQUENCE or SET at the start of `bytes`; constructed ones keep their encoding.
openssl::Elements elementsOf(std::string_view bytes, Decode decode) {
  const auto* position = reinterpret_cast<const unsigned char*>(bytes.data());
  openssl::Elements elements(decode(nullptr, &position, static_cast<long>(bytes.size())));
  if (!elements)
    refuse();
  return elements;
}

/// The encoding of the constructed element at `index`; `kind` is V_ASN1_OTHER for one with a context-specific
/// tag.
std::string_view encodingOf(const openssl::Elements& elements, int index, int kind) {
  const ASN1_TYPE* element = sk_ASN1_TYPE_value(elements.get(), index);
  if (element == nullptr || element->type != kind)
    refuse();
  return openssl::bytesOf(element->value.asn1_string);
}

/// The signer's attributes as a SET OF: only the header is replaced.
std::string asSet(const Element& attributes) {
  if (attributes.tagClass != V_ASN1_CONTEXT_SPECIFIC || attributes.tag != 0)
    refuse();
  std::array<unsigned char, 16> header{};
  unsigned char* end = header.data();
  ::ASN1_put_object(&end, 1, static_cast<int>(attributes.content.size()), V_ASN1_SET, V_ASN1_UNIVERSAL);
  return std::string(header.data(), end).append(attributes.content);
}

openssl::Attribute readAttribute(std::string_view encoding) {
  const auto* position = reinterpret_cast<const unsigned char*>(encoding.data());
  const auto* const end = position + encoding.size();
  openssl::Attribute attribute(::d2i_X509_ATTRIBUTE(nullptr, &position, static_cast<long>(encoding.size())));
  if (!attribute || position != end)
    refuse();
  return attribute;
}

[[noreturn]] void refuseDirectories() {
  throw FormatError("its code directories are not those that were signed");
}

PropertyList readList(std::string_view bytes) {
  try {
    return NSPropertyListSerialization::propertyListWithData(Data(std::string(bytes)));
  } catch (const PropertyListError&) {
    refuseDirectories();
  }
}

void checkHashList(const ASN1_STRING* text, const std::vector<CodeDirectory>& directories) {
  if (text == nullptr)
    refuseDirectories();
  const PropertyList list = readList(openssl::bytesOf(text));
  const PropertyList* hashes = list.valueForKey("cdhashes");
  if (hashes == nullptr || hashes->array() == nullptr || hashes->array()->size() != directories.size())
    refuseDirectories();
  for (std::size_t index = 0; index < directories.size(); ++index) {
    const Data* hash = (*hashes->array())[index].data();
    if (hash == nullptr || hash->bytes() != directories[index].codeDirectoryHash())
      refuseDirectories();
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
    refuseDirectories();
  const std::string_view encoded = openssl::bytesOf(value->value.sequence);
  const auto* position = reinterpret_cast<const unsigned char*>(encoded.data());
  const openssl::AlgorithmIdentifier pair(
      ::d2i_X509_ALGOR(nullptr, &position, static_cast<long>(encoded.size())));
  if (!pair)
    refuseDirectories();
  const ASN1_OBJECT* algorithm = nullptr;
  int type = V_ASN1_UNDEF;
  const void* digest = nullptr;
  ::X509_ALGOR_get0(&algorithm, &type, &digest, pair.get());
  if (type != V_ASN1_OCTET_STRING)
    refuseDirectories();
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
    refuseDirectories();
}

}  // namespace

SignedAttributes SignedAttributes::read(std::string_view message) {
  const openssl::Elements outer = elementsOf(message, &::d2i_ASN1_SEQUENCE_ANY);
  const Element content = elementIn(encodingOf(outer, kContentOfMessage, V_ASN1_OTHER));
  const openssl::Elements data = elementsOf(content.content, &::d2i_ASN1_SEQUENCE_ANY);
  const int last = sk_ASN1_TYPE_num(data.get()) - 1;
  const openssl::Elements signers = elementsOf(encodingOf(data, last, V_ASN1_SET), &::d2i_ASN1_SET_ANY);
  if (sk_ASN1_TYPE_num(signers.get()) != 1)
    refuse();
  const openssl::Elements signer =
      elementsOf(encodingOf(signers, 0, V_ASN1_SEQUENCE), &::d2i_ASN1_SEQUENCE_ANY);

  SignedAttributes result;
  result.signedBytes_ = asSet(elementIn(encodingOf(signer, kAttributesOfSigner, V_ASN1_OTHER)));
  const openssl::Elements attributes = elementsOf(result.signedBytes_, &::d2i_ASN1_SET_ANY);
  for (int index = 0; index < sk_ASN1_TYPE_num(attributes.get()); ++index)
    result.attributes_.push_back(readAttribute(encodingOf(attributes, index, V_ASN1_SEQUENCE)));
  return result;
}

X509_ATTRIBUTE* SignedAttributes::find(const ASN1_OBJECT* type) const {
  X509_ATTRIBUTE* found = nullptr;
  for (const openssl::Attribute& attribute : attributes_) {
    if (::OBJ_cmp(::X509_ATTRIBUTE_get0_object(attribute.get()), type) != 0)
      continue;
    if (found != nullptr)
      throw FormatError("its signature has a signed attribute twice");
    found = attribute.get();
  }
  return found;
}

const void* SignedAttributes::onlyValue(const ASN1_OBJECT* type, int kind) const {
  X509_ATTRIBUTE* attribute = find(type);
  if (attribute == nullptr || ::X509_ATTRIBUTE_count(attribute) != 1)
    return nullptr;
  return ::X509_ATTRIBUTE_get0_data(attribute, 0, kind, nullptr);
}

void requireDirectoriesAreSigned(const SignedAttributes& attributes,
                                 const std::vector<CodeDirectory>& directories) {
  const openssl::Object hashList = openssl::objectIdentifier(kHashListAttribute);
  X509_ATTRIBUTE* digestSet = attributes.find(openssl::objectIdentifier(kDigestSetAttribute).get());
  const bool hasHashList = attributes.find(hashList.get()) != nullptr;
  if (directories.size() > 1 && !hasHashList && digestSet == nullptr)
    refuseDirectories();
  if (hasHashList)
    checkHashList(static_cast<const ASN1_STRING*>(attributes.onlyValue(hashList.get(), V_ASN1_OCTET_STRING)),
                  directories);
  if (digestSet != nullptr)
    checkDigestSet(digestSet, directories);
}

}  // namespace platform
