#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/security/code_signature_format.hpp"

namespace platform {

/// The components of a signature by slot. Each includes its blob header, except for `slot::kSignature`, which
/// is the bare CMS message.
using CodeComponents = std::map<std::uint32_t, std::string>;

/// The blob without its header. Throws `FormatError` unless the header states the blob's exact length.
std::string_view blobPayload(std::string_view blob);

/// Requires that `blob` is complete and, for a known slot, of the type that belongs there. Throws
/// `FormatError`.
void requireBlobForSlot(std::uint32_t number, std::string_view blob);

/// The compiled designated requirement in the component of the slot `kRequirements`; nothing when it has
/// none. A view of `set`. Throws `FormatError`.
std::optional<std::string_view> designatedRequirement(std::string_view set);

/// Reads an embedded signature from the bytes that the code reserves for it. Omits identification and ticket,
/// which no digest covers; includes components in unknown slots, which matter only when a code directory has
/// a digest for them. Throws `FormatError`.
CodeComponents readEmbeddedSignature(std::string_view bytes);

}  // namespace platform
