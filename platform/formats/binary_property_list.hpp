#pragma once

#include <string_view>

#include "platform/formats/property_list.hpp"

namespace platform {

/// Whether the bytes start like a binary property list.
bool isBinaryPropertyList(std::string_view bytes);

/// Reads a binary property list. Of members with the same key the last counts; an integer outside of the
/// signed 64-bit range is a value of an unsupported type. Throws `PropertyListError` unless every object that
/// is reachable from the root is within the data and of a known type, strings are valid and without null
/// characters, keys are strings, no container contains itself, and the depth and the size of the result,
/// with shared objects counted at each use, are within limits. Time and memory are linear in the size of the
/// data.
PropertyList readBinaryPropertyList(std::string_view bytes);

}  // namespace platform
