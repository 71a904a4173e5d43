#include "platform/security/resource_seal.hpp"

#include "platform/foundation/text.hpp"
#include "platform/security/security_error.hpp"

namespace platform {
namespace {

constexpr std::size_t kCodeHashSize = 20;

[[noreturn]] void refuse(const std::string& path, const std::string& reason) {
  throw FormatError("the resource seal's entry for \"" + path + "\" " + reason);
}

/// The data under `key`, which must have `size` bytes; nothing when the key is missing.
std::optional<std::string> bytes(const std::string& path, const PropertyList& entry, std::string_view key,
                                 std::size_t size) {
  const PropertyList* value = entry.valueForKey(key);
  if (value == nullptr)
    return std::nullopt;
  if (value->data() == nullptr || value->data()->size() != size)
    refuse(path, "has a digest of the wrong length");
  return std::string(value->data()->bytes());
}

std::optional<std::string> text(const std::string& path, const PropertyList& entry, std::string_view key) {
  const PropertyList* value = entry.valueForKey(key);
  if (value == nullptr)
    return std::nullopt;
  if (value->string() == nullptr)
    refuse(path, "has a value that is not a string");
  return *value->string();
}

bool isOptional(const std::string& path, const PropertyList& entry) {
  const PropertyList* value = entry.valueForKey("optional");
  if (value != nullptr && !value->boolean())
    refuse(path, "is not valid");
  return value != nullptr && *value->boolean();
}

SealedItem readItem(const std::string& path, const PropertyList& entry) {
  if (const Data* digest = entry.data()) {
    if (digest->size() != digestSize(DigestAlgorithm::sha1))
      refuse(path, "has a digest of the wrong length");
    return {.content = SealedFile{DigestAlgorithm::sha1, std::string(digest->bytes())}};
  }
  const bool optional = isOptional(path, entry);
  if (auto target = text(path, entry, "symlink"))
    return {SealedLink{std::move(*target)}, optional};
  const auto weak = bytes(path, entry, "hash", digestSize(DigestAlgorithm::sha1));
  const auto strong = bytes(path, entry, "hash2", digestSize(DigestAlgorithm::sha256));
  auto code = bytes(path, entry, "cdhash", kCodeHashSize);
  auto requirement = text(path, entry, "requirement");
  if (code || requirement)
    return {SealedCode{std::move(code), std::move(requirement)}, optional};
  if (strong)
    return {SealedFile{DigestAlgorithm::sha256, *strong}, optional};
  if (weak)
    return {SealedFile{DigestAlgorithm::sha1, *weak}, optional};
  refuse(path, "does not say anything about its content");
}

const PropertyList& section(const PropertyList& list, std::string_view key) {
  const PropertyList* value = list.valueForKey(key);
  if (value == nullptr || value->dictionary() == nullptr)
    throw FormatError("the resource seal lacks its part \"" + std::string(key) + "\"");
  return *value;
}

}  // namespace

ResourceSeal ResourceSeal::read(const Data& file) {
  const PropertyList list = NSPropertyListSerialization::propertyListWithData(file);
  const PropertyList& files = section(list, "files2");
  ResourceSeal seal{.items = {}, .rules = ResourceRules(section(list, "rules2"))};
  for (const auto& [path, entry] : *files.dictionary()) {
    if (!seal.items.emplace(sealKey(path), readItem(path, entry)).second)
      refuse(path, "exists twice");
  }
  return seal;
}

std::string sealKey(std::string_view path) {
  return canonicallyDecomposed(path);
}

}  // namespace platform
