#include "platform/security/code_directory.hpp"

#include <algorithm>
#include <array>

#include "platform/formats/byte_reader.hpp"
#include "platform/foundation/text.hpp"
#include "platform/security/code_blobs.hpp"
#include "platform/security/security_error.hpp"

namespace platform {
namespace {

constexpr std::string_view kItem = "the code directory";

constexpr std::uint8_t kLargestPageShift = 30;

/// A type of digest: algorithm, number of bytes kept, strength.
struct HashType {
  std::uint8_t number;
  DigestAlgorithm algorithm;
  std::size_t length;
  int strength;
};

const HashType& hashType(std::uint8_t number) {
  static constexpr std::array<HashType, 5> kTypes{
      {{hash_type::kSha1, DigestAlgorithm::sha1, 20, 0},
       {hash_type::kSha256, DigestAlgorithm::sha256, 32, 2},
       {hash_type::kTruncatedSha256, DigestAlgorithm::sha256, 20, 1},
       {hash_type::kSha384, DigestAlgorithm::sha384, 48, 3},
       {hash_type::kSha512, DigestAlgorithm::sha512, 64, 4}}};
  const auto* found =
      std::find_if(kTypes.begin(), kTypes.end(), [&](const HashType& type) { return type.number == number; });
  if (found == kTypes.end())
    throw FormatError("the code directory uses an unknown digest");
  return *found;
}

std::string readText(const ByteReader& reader, std::uint64_t offset, std::uint64_t headerSize) {
  const std::string_view rest = reader.bytesFrom(offset);
  const std::size_t length = rest.find('\0');
  if (length == std::string_view::npos)
    throw FormatError("the code directory has an unterminated string");
  std::string text(rest.substr(0, length));
  if (offset < headerSize || text.empty() || !stringFromUTF8(text))
    throw FormatError("the code directory does not have a valid identifier");
  return text;
}

}  // namespace

CodeDirectory CodeDirectory::read(std::string_view blob) {
  requireBlobForSlot(slot::kCodeDirectory, blob);
  ByteReader reader(blob, kItem);
  reader.skip(8);
  const std::uint32_t version = reader.readU32();
  if (version < code_directory_version::kOldest || version >= code_directory_version::kFirstUnknown)
    throw FormatError("the code directory has an unknown version");

  CodeDirectory directory;
  directory.blob_ = blob;
  directory.flags_ = reader.readU32();
  directory.digestOffset_ = reader.readU32();
  const std::uint64_t identifierOffset = reader.readU32();
  directory.specialSlotCount_ = reader.readU32();
  directory.pageCount_ = reader.readU32();
  directory.codeLimit_ = reader.readU32();
  const std::uint8_t digestLength = reader.readU8();
  const HashType& type = hashType(reader.readU8());
  reader.skip(1);
  const std::uint8_t pageShift = reader.readU8();
  reader.skip(4);
  std::uint64_t teamOffset = 0;
  if (version >= code_directory_version::kWithScatter && reader.readU32() != 0)
    throw FormatError("the code directory is scattered, which is not supported");
  if (version >= code_directory_version::kWithTeam)
    teamOffset = reader.readU32();
  if (version >= code_directory_version::kWithLongLimit) {
    reader.skip(4);
    if (const std::uint64_t longLimit = reader.readU64(); longLimit != 0)
      directory.codeLimit_ = longLimit;
  }
  if (version >= code_directory_version::kWithExecutableSegment)
    reader.skip(24);
  if (version >= code_directory_version::kWithRuntime)
    reader.skip(8);

  directory.algorithm_ = type.algorithm;
  directory.strength_ = type.strength;
  directory.digestLength_ = type.length;
  if (digestLength != type.length)
    throw FormatError("the code directory gives its digests the wrong length");
  if (pageShift > kLargestPageShift)
    throw FormatError("the code directory gives its pages an invalid size");
  directory.pageSize_ = pageShift == 0 ? directory.codeLimit_ : std::uint64_t{1} << pageShift;

  const std::uint64_t specialBytes = std::uint64_t{directory.specialSlotCount_} * type.length;
  if (directory.digestOffset_ < reader.position() ||
      directory.digestOffset_ - reader.position() < specialBytes)
    throw FormatError("the digests of the code directory overlap its header");
  reader.bytes(directory.digestOffset_, std::uint64_t{directory.pageCount_} * type.length);
  const std::uint64_t pages =
      directory.codeLimit_ == 0 ? 0 : (directory.codeLimit_ - 1) / directory.pageSize_ + 1;
  if (pages != directory.pageCount_)
    throw FormatError("the pages of the code directory do not cover the code");

  directory.identifier_ = readText(reader, identifierOffset, reader.position());
  if (teamOffset != 0)
    directory.teamIdentifier_ = readText(reader, teamOffset, reader.position());
  return directory;
}

std::string CodeDirectory::digestOf(std::string_view bytes) const {
  return platform::digestOf(algorithm_, bytes).substr(0, digestLength_);
}

std::string_view CodeDirectory::pageDigest(std::uint32_t page) const {
  return blob_.substr(digestOffset_ + std::uint64_t{page} * digestLength_, digestLength_);
}

std::string_view CodeDirectory::pageDigests() const {
  return blob_.substr(digestOffset_, std::uint64_t{pageCount_} * digestLength_);
}

std::optional<std::string_view> CodeDirectory::specialDigest(std::uint32_t slot) const {
  if (slot == 0 || slot > specialSlotCount_)
    return std::nullopt;
  const std::string_view digest =
      blob_.substr(digestOffset_ - std::uint64_t{slot} * digestLength_, digestLength_);
  if (digest.find_first_not_of('\0') == std::string_view::npos)
    return std::nullopt;
  return digest;
}

std::string CodeDirectory::fullDigest() const {
  return platform::digestOf(algorithm_, blob_);
}

}  // namespace platform
