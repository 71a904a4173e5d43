#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/files/data.hpp"
#include "platform/foundation/character_set.hpp"

namespace platform {

/// The bytes as text, or nothing when they are not valid UTF-8 (Unicode standard, section 3.9).
std::optional<std::string> stringFromUTF8(const Data& data);

/// Big-endian UTF-16 without a byte order mark as UTF-8; nothing when a surrogate has no partner.
std::optional<std::string> stringFromUTF16(std::string_view bytes);

/// The text without the set's characters at both ends.
std::string trimmingCharactersIn(std::string_view text, const CharacterSet& set);

/// Every character in its simple lower-case form, independent of any locale.
std::string lowercased(std::string_view text);

/// The text in Unicode normalisation form D (Unicode Standard Annex #15); as it is when it is not valid
/// UTF-8.
std::string canonicallyDecomposed(std::string_view text);

/// Equality of text: Unicode canonical equivalence (Unicode Standard Annex #15). Texts that are not both
/// valid UTF-8 are equal when their bytes are.
bool canonicallyEquivalent(std::string_view left, std::string_view right);

}  // namespace platform
