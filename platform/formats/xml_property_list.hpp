#pragma once

#include "platform/formats/property_list.hpp"

namespace platform {

/// Reads an XML property list in UTF-8, UTF-16, ISO 8859-1 or ASCII. Strings are taken unchanged, including
/// their line ends; of members with the same key the last counts. Entities must not be declared, and external
/// entities are never loaded. Throws `PropertyListError`. Time and memory are linear in the size of the data.
PropertyList readXMLPropertyList(std::string_view bytes);

/// The value of an element without children: `name` is "string", "integer", "real", "true", "false", "date"
/// or "data", and `text` is its content. Throws `PropertyListError` if they do not match. Defined in
/// `xml_property_list_value.cpp`.
PropertyList xmlPropertyListValue(std::string_view name, std::string text);

}  // namespace platform
