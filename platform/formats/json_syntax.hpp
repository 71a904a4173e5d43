#pragma once

#include <cstddef>
#include <string_view>

#include "platform/formats/json.hpp"

namespace platform {

/// The failure of `text`, which is not valid JSON at the byte `position`, counted from 1. Its sentence names
/// line and column.
DecodingError invalidJSON(std::string_view text, std::size_t position);

/// Throws `DecodingError` if the text contains a null character, which JSON forbids and the parser takes for
/// the end of the text.
void requireNoNullCharacter(std::string_view text);

}  // namespace platform
