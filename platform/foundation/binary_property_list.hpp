#pragma once

#include <string_view>

namespace platform {

/// Whether the bytes claim to be a property list in the binary form.
bool isBinaryPropertyList(std::string_view bytes);

/// Throws `PropertyListError` unless a property list in the binary form can be read safely: every object that
/// its root leads to lies inside the data and is of a known kind, text is valid and without null characters,
/// keys are text, no container contains itself, and neither the nesting nor the size of what would be read is
/// beyond reason, however often objects are shared. Time and memory are linear in the size of the data.
void requireSafeBinaryPropertyList(std::string_view bytes);

}  // namespace platform
