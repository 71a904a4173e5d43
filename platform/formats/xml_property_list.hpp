#pragma once

#include "platform/formats/property_list.hpp"

namespace platform {

/// Reads a property list in XML, in one of the encodings UTF-8, UTF-16, ISO 8859-1 and ASCII. Text is taken
/// as it stands, line ends included; of members with one key the last counts. No entity may be declared and
/// nothing outside the data is looked at. Throws `PropertyListError`. Time and memory are linear in the size
/// of the data.
PropertyList readXMLPropertyList(std::string_view bytes);

}  // namespace platform
