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
inline constexpr std::uint32_t kLastSpecial = 11;
inline constexpr std::uint32_t kFirstAlternate = 0x1000;
inline constexpr std::uint32_t kLastAlternate = 0x1004;
inline constexpr std::uint32_t kSignature = 0x10000;
inline constexpr std::uint32_t kIdentification = 0x10001;
inline constexpr std::uint32_t kTicket = 0x10002;
}  // namespace slot

/// The components of one signature by slot, each with its header.
using CodeComponents = std::map<std::uint32_t, std::string>;

/// The blob's bytes without its header. Throws `FormatError` unless the header gives the whole length.
std::string_view blobPayload(std::string_view blob);

/// Checks that `blob` is one of the kind that belongs into the slot `number`. Throws `FormatError`.
void requireBlobForSlot(std::uint32_t number, std::string_view blob);

/// The parts of a signature that is embedded in code, out of the bytes that the code sets apart for it. Those
/// that nothing binds, identification and ticket, are left out.
/// Throws `FormatError` for anything that does not belong into one.
CodeComponents readEmbeddedSignature(std::string_view bytes);

}  // namespace platform
