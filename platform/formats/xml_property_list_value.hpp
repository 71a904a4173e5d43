#pragma once

#include <string_view>

#include "platform/formats/property_list.hpp"

namespace platform {

/// The value of an XML property list's element without children, `name` being one of "string", "integer",
/// "real", "true", "false", "date" and "data", and `text` its whole text. Throws `PropertyListError` when
/// they do not match.
PropertyList xmlPropertyListValue(std::string_view name, std::string text);

}  // namespace platform
