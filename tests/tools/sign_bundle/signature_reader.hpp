#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

/// A reader of signatures that shares nothing with the code that writes them.
namespace test {

struct ReadCodeDirectory {
  std::uint32_t version = 0;
  std::uint32_t flags = 0;
  std::string identifier;
  std::string team;
  std::uint64_t codeLimit = 0;
  unsigned hashType = 0;
  unsigned pageSizeExponent = 0;
  std::uint64_t executableSegmentLimit = 0;
  std::uint64_t executableSegmentFlags = 0;
  std::uint32_t runtimeVersion = 0;
  /// By slot number, 1 and up.
  std::vector<std::string> specialSlots;
  std::vector<std::string> codeSlots;
  std::string blob;
};

/// Where a slice's signature lies and what the file says about it.
struct ReadSlice {
  std::uint32_t cpuType = 0;
  std::string bytes;
  std::uint32_t signatureOffset = 0;
  std::uint32_t signatureSize = 0;
  std::uint64_t linkEditEnd = 0;
  std::uint64_t linkEditMemorySize = 0;
  std::uint64_t linkEditFileSize = 0;
};

std::uint32_t bigEndian32(std::string_view bytes, std::size_t offset);

/// Throw `std::runtime_error` or `std::out_of_range` for what they do not understand.
ReadCodeDirectory readCodeDirectory(const std::string& blob);
std::map<std::uint32_t, std::string> readSuperBlob(const std::string& blob);
std::vector<ReadSlice> readSlices(const std::string& file);

/// The digest of `bytes` by one of the format's hash types.
std::string digestByType(std::string_view bytes, unsigned hashType);

/// The digests that the code slots should hold.
std::vector<std::string> expectedCodeSlots(std::string_view code, const ReadCodeDirectory& directory);

/// A blob's content, without its header.
std::string payloadOf(const std::string& blob);

/// Checks the CMS message over `content` with the `openssl` program, certificates aside. Empty when it holds,
/// otherwise what the program said.
std::string verifyMessage(const std::string& message, const std::string& content);

/// Checks the message's time stamp with the `openssl` program, up to the chain's root. Empty when it holds.
std::string verifyTimeStamp(const std::string& message, const std::filesystem::path& chain);

/// The values of a signed attribute, DER content octets without tag and length.
std::vector<std::string> signedAttribute(const std::string& message, const char* identifier);

}  // namespace test
