#pragma once

#include "platform/formats/property_list.hpp"

namespace platform {

/// Reads a property list in XML, in one of the encodings UTF-8, UTF-16, ISO 8859-1 and ASCII. Text is taken
/// unchanged, line ends included; of members with the same key the last counts. Entities must not be
/// declared, and external entities are never loaded. Throws `PropertyListError`. Time and memory are linear
/// in the size of the data.
PropertyList readXMLPropertyList(std::string_view bytes);

/// The value of an element without children, which `xml_property_list_value.cpp` reads: `name` is one of
/// "string", "integer", "real", "true", "false", "date" and "data", and `text` its whole text. Throws
/// `PropertyListError` when they do not match.
PropertyList xmlPropertyListValue(std::string_view name, std::string text);

}  // namespace platform
