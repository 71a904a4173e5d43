#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace platform {

/// Where a component of a signature has its place, and where its digest has its own.
namespace slot {
inline constexpr std::uint32_t kCodeDirectory = 0;
inline constexpr std::uint32_t kInfo = 1;
inline constexpr std::uint32_t kRequirements = 2;
inline constexpr std::uint32_t kResources = 3;
inline constexpr std::uint32_t kEntitlements = 5;
/// Later systems have more, which a code directory may bind like these.
inline constexpr std::uint32_t kLastKnownSpecial = 11;
inline constexpr std::uint32_t kFirstAlternate = 0x1000;
inline constexpr std::uint32_t kLastAlternate = 0x1004;
inline constexpr std::uint32_t kSignature = 0x10000;
inline constexpr std::uint32_t kIdentification = 0x10001;
inline constexpr std::uint32_t kTicket = 0x10002;
}  // namespace slot

/// The components of one signature by slot, each with its header; that of `slot::kSignature` is the CMS
/// message alone.
using CodeComponents = std::map<std::uint32_t, std::string>;

/// The blob's bytes without its header. Throws `FormatError` unless the header gives the whole length.
std::string_view blobPayload(std::string_view blob);

/// Checks that `blob` is whole, and of the kind of the slot `number` where that is known. Throws
/// `FormatError`.
void requireBlobForSlot(std::uint32_t number, std::string_view blob);

/// The components of a signature that is embedded in code, read from the bytes that the code sets apart for
/// it. Identification and ticket, which nothing binds, are left out; those of unknown slots are included, and
/// count only where a code directory has a digest for them. Throws `FormatError` for a malformed signature.
CodeComponents readEmbeddedSignature(std::string_view bytes);

}  // namespace platform
