#pragma once

#include "platform/formats/json.hpp"
#include "platform/formats/property_list.hpp"

namespace platform {

/// A value that JSON cannot represent.
class EncodingError : public Error {
 public:
  using Error::Error;
};

/// JSON text (RFC 8259) of any shape, as a value of a property list.
class NSJSONSerialization {
 public:
  /// Reads one JSON value from text in UTF-8, with or without a byte order mark. A number without fraction
  /// and exponent is an integer if 64 bits hold it, every other one a real; null is a value of none of the
  /// types. Of members with the same name the last counts. Throws `DecodingError` for text that is not valid
  /// JSON, that contains a number beyond the range of a real, or that is nested deeper than
  /// `PropertyList::kGreatestDepth`. Linear time and memory.
  static PropertyList JSONObjectWithData(const Data& text);

  /// Writes a value without white space, members sorted by name. Bytes that are not valid UTF-8 are replaced
  /// by U+FFFD. Throws `EncodingError` for a value that contains bytes, a real that is not finite or a value
  /// of an unsupported type, and for one that is nested deeper than `PropertyList::kGreatestDepth`.
  static Data dataWithJSONObject(const PropertyList& value);
};

}  // namespace platform
