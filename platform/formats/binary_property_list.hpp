#pragma once

#include <string_view>

#include "platform/formats/property_list.hpp"

namespace platform {

/// Whether the bytes claim to be a property list in the binary form.
bool isBinaryPropertyList(std::string_view bytes);

/// Reads a property list in the binary form. Of members with one key the last counts; an integer beyond 64
/// bits with sign is a value of an unread kind. Throws `PropertyListError` unless every object that the root
/// leads to is inside the data and of a known kind, text is valid and without null characters, keys are text,
/// no container contains itself, and neither the nesting nor the size of the result is beyond reason, however
/// often objects are shared. Time and memory are linear in the size of the data.
PropertyList readBinaryPropertyList(std::string_view bytes);

}  // namespace platform
