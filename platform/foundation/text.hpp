#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/foundation/character_set.hpp"

namespace platform {

/// The bytes as a string; nothing unless they are valid UTF-8 (Unicode Standard, section 3.9).
std::optional<std::string> stringFromUTF8(std::string_view bytes);

/// Converts big-endian UTF-16 without a byte order mark to UTF-8; nothing when half a code unit or an
/// unpaired surrogate is found.
std::optional<std::string> stringFromUTF16(std::string_view bytes);

/// The text without leading and trailing characters of the set.
std::string trimmingCharactersIn(std::string_view text, const CharacterSet& set);

/// The text with the simple lower-case mapping of every character, in any locale; unchanged unless it is
/// valid UTF-8.
std::string lowercased(std::string_view text);

/// The text in Unicode normalisation form D (Unicode Standard Annex #15); unchanged unless it is valid UTF-8.
std::string canonicallyDecomposed(std::string_view text);

/// The text case-folded (Unicode Standard, section 3.13) and decomposed: names for which this is the same are
/// one name to a file system that ignores case and normalisation. Unchanged unless it is valid UTF-8.
std::string caseFolded(std::string_view text);

/// Whether two strings are canonically equivalent (Unicode Standard Annex #15). Unless both are valid UTF-8,
/// their bytes are compared.
bool canonicallyEquivalent(std::string_view left, std::string_view right);

}  // namespace platform
