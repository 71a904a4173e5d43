#include "platform/security/code_blobs.hpp"

#include <optional>
#include <vector>

#include "platform/formats/byte_reader.hpp"
#include "platform/security/security_error.hpp"

namespace platform {
namespace {

/// The magic of the blob in a slot; nothing for slots of later systems, where any blob may be.
std::optional<std::uint32_t> magicForSlot(std::uint32_t number) {
  switch (number) {
    case slot::kRequirements:
      return magic::kRequirementSet;
    case slot::kEntitlements:
      return magic::kEntitlements;
    case slot::kEntitlementsDER:
      return magic::kEntitlementsDER;
    case 8:
    case 9:
    case 10:
    case slot::kLastKnownSpecial:
      return magic::kLaunchConstraint;
    case slot::kSignature:
      return magic::kWrapper;
    default:
      if (number == slot::kCodeDirectory ||
          (number >= slot::kFirstAlternate && number <= slot::kLastAlternate))
        return magic::kCodeDirectory;
      return std::nullopt;
  }
}

using Entries = std::map<std::uint32_t, std::string_view>;

/// The blobs of a SuperBlob by type. They are inside it, after its index, and do not overlap.
Entries readSuperBlob(std::string_view bytes, std::string_view item) {
  ByteReader reader(bytes, item);
  reader.skip(kBlobHeaderSize);
  const std::uint32_t count = reader.readU32();
  // Each component takes at least an index entry and a header.
  if (count > bytes.size() / (2 * kBlobHeaderSize))
    throw FormatError(std::string(item) + " counts more components than it can contain");
  const std::uint64_t indexEnd = reader.position() + std::uint64_t{count} * 8;
  Entries entries;
  std::map<std::uint64_t, std::uint64_t> ends;
  for (std::uint32_t index = 0; index < count; ++index) {
    const std::uint32_t type = reader.readU32();
    const std::uint32_t offset = reader.readU32();
    const std::uint32_t length = reader.u32(std::uint64_t{offset} + 4);
    if (offset < indexEnd || length < kBlobHeaderSize)
      throw FormatError(std::string(item) + " has a component at an invalid offset");
    if (!entries.emplace(type, reader.bytes(offset, length)).second)
      throw FormatError(std::string(item) + " has a component twice");
    ends.emplace(offset, std::uint64_t{offset} + length);
  }
  std::uint64_t end = indexEnd;
  if (ends.size() != entries.size())
    throw FormatError(std::string(item) + " has components that overlap");
  for (const auto& [offset, next] : ends) {
    if (offset < end)
      throw FormatError(std::string(item) + " has components that overlap");
    end = next;
  }
  if (end != bytes.size())
    throw FormatError(std::string(item) + " has bytes that belong to no component");
  return entries;
}

}  // namespace

std::string_view blobPayload(std::string_view blob) {
  if (ByteReader(blob, "a component of its signature").u32(4) != blob.size())
    throw FormatError("a component of its signature has the wrong length");
  return blob.substr(kBlobHeaderSize);
}

void requireBlobForSlot(std::uint32_t number, std::string_view blob) {
  const std::optional<std::uint32_t> expected = magicForSlot(number);
  blobPayload(blob);
  if (expected && ByteReader(blob, "a component of its signature").u32(0) != *expected)
    throw FormatError("its signature has a component of the wrong kind");
  if (number == slot::kRequirements) {
    for (const auto& [type, requirement] : readSuperBlob(blob, "the list of requirements")) {
      if (ByteReader(requirement, "a requirement").u32(0) != magic::kRequirement)
        throw FormatError("the list of requirements has a component of the wrong kind");
    }
  }
}

std::optional<std::string_view> designatedRequirement(std::string_view set) {
  constexpr std::uint32_t kDesignated = 3;
  requireBlobForSlot(slot::kRequirements, set);
  const Entries requirements = readSuperBlob(set, "the list of requirements");
  const auto found = requirements.find(kDesignated);
  return found == requirements.end() ? std::nullopt : std::optional(found->second);
}

CodeComponents readEmbeddedSignature(std::string_view bytes) {
  const ByteReader reader(bytes, "the signature");
  if (reader.u32(0) != magic::kEmbeddedSignature)
    throw FormatError("the bytes reserved for its signature do not contain one");
  const std::uint32_t length = reader.u32(4);
  CodeComponents components;
  for (const auto& [number, blob] : readSuperBlob(reader.bytes(0, length), "the signature")) {
    requireBlobForSlot(number, blob);
    if (number == slot::kSignature) {
      components.emplace(number, blobPayload(blob));
      continue;
    }
    if (number != slot::kIdentification && number != slot::kTicket)
      components.emplace(number, blob);
  }
  return components;
}

}  // namespace platform
