#pragma once

#include <string_view>

namespace platform {

/// True when the bytes of a property list, in XML or in the binary form, may be given to a reader that calls
/// itself for every level and copies what is referred to more than once: nesting stays within `deepest`
/// levels, and nothing multiplies. Bytes of other forms are for the reader to refuse.
bool hasHarmlessShape(std::string_view list, std::size_t deepest);

}  // namespace platform
