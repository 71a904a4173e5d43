#pragma once

#include <cstddef>
#include <cstdint>

/// Numbers of the on-disk format of a code signature. All of its integers are big-endian.
namespace platform {

/// The first four bytes of a blob.
namespace magic {
inline constexpr std::uint32_t kWrapper = 0xFADE0B01;
inline constexpr std::uint32_t kRequirement = 0xFADE0C00;
inline constexpr std::uint32_t kRequirementSet = 0xFADE0C01;
inline constexpr std::uint32_t kCodeDirectory = 0xFADE0C02;
inline constexpr std::uint32_t kEmbeddedSignature = 0xFADE0CC0;
inline constexpr std::uint32_t kEntitlements = 0xFADE7171;
inline constexpr std::uint32_t kEntitlementsDER = 0xFADE7172;
inline constexpr std::uint32_t kLaunchConstraint = 0xFADE8181;
}  // namespace magic

/// The index of a component in a signature, and of its digest in a code directory.
namespace slot {
inline constexpr std::uint32_t kCodeDirectory = 0;
inline constexpr std::uint32_t kInfo = 1;
inline constexpr std::uint32_t kRequirements = 2;
inline constexpr std::uint32_t kResources = 3;
inline constexpr std::uint32_t kEntitlements = 5;
inline constexpr std::uint32_t kEntitlementsDER = 7;
/// Code directories of later systems may have more.
inline constexpr std::uint32_t kLastKnownSpecial = 11;
inline constexpr std::uint32_t kFirstAlternate = 0x1000;
inline constexpr std::uint32_t kLastAlternate = 0x1004;
inline constexpr std::uint32_t kSignature = 0x10000;
inline constexpr std::uint32_t kIdentification = 0x10001;
inline constexpr std::uint32_t kTicket = 0x10002;
}  // namespace slot

namespace code_directory_version {
inline constexpr std::uint32_t kOldest = 0x20001;
inline constexpr std::uint32_t kWithScatter = 0x20100;
inline constexpr std::uint32_t kWithTeam = 0x20200;
inline constexpr std::uint32_t kWithLongLimit = 0x20300;
inline constexpr std::uint32_t kWithExecutableSegment = 0x20400;
inline constexpr std::uint32_t kWithRuntime = 0x20500;
inline constexpr std::uint32_t kFirstUnknown = 0x30000;
}  // namespace code_directory_version

namespace code_flag {
inline constexpr std::uint32_t kAdHoc = 0x2;
inline constexpr std::uint32_t kHardenedRuntime = 0x10000;
}  // namespace code_flag

namespace hash_type {
inline constexpr std::uint8_t kSha1 = 1;
inline constexpr std::uint8_t kSha256 = 2;
inline constexpr std::uint8_t kTruncatedSha256 = 3;
inline constexpr std::uint8_t kSha384 = 4;
inline constexpr std::uint8_t kSha512 = 5;
}  // namespace hash_type

/// A blob's magic and length.
inline constexpr std::size_t kBlobHeaderSize = 8;

/// The leading bytes of a code directory's digest that identify code.
inline constexpr std::size_t kCodeDirectoryHashSize = 20;

/// Signed attributes of the CMS message that list all code directories.
inline constexpr const char* kHashListAttribute = "1.2.840.113635.100.9.1";
inline constexpr const char* kDigestSetAttribute = "1.2.840.113635.100.9.2";

}  // namespace platform
