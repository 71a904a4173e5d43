#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "platform/security/code_signature_format.hpp"

namespace platform {

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
