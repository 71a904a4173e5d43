#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "platform/files/data.hpp"
#include "platform/foundation/error.hpp"

namespace platform {

/// Text that is not valid JSON (RFC 8259), or whose values do not match the record.
class DecodingError : public Error {
 public:
  using Error::Error;
};

/// The members of a JSON object, by name. Reading one that is missing, null or of another type throws
/// `DecodingError`. Of members with the same name the last counts.
class KeyedDecodingContainer {
 public:
  enum class Type { null, boolean, number, string, array, object };
  struct Value {
    Type type = Type::null;
    bool boolean = false;
    std::string string;
  };
  using Members = std::map<std::string, Value, std::less<>>;

  explicit KeyedDecodingContainer(Members members) : members_(std::move(members)) {}

  std::string decodeString(std::string_view key) const;
  bool decodeBool(std::string_view key) const;

 private:
  const Value& value(std::string_view key, Type type) const;

  Members members_;
};

/// Reads a record from JSON text in UTF-8, with or without a byte order mark. A record type has a static
/// operation `decode(const KeyedDecodingContainer&)` that returns a record.
class JSONDecoder {
 public:
  /// Throws `DecodingError` unless the text is exactly one JSON object, and what the record throws. Memory is
  /// a small multiple of the text; the depth of nesting is not limited.
  template <typename Record>
  Record decode(const Data& text) const {
    return Record::decode(container(text));
  }

 private:
  static KeyedDecodingContainer container(const Data& text);
};

/// Collects the members of a JSON object, which are written in the order of the calls.
class KeyedEncodingContainer {
 public:
  void encode(std::string_view key, std::string_view value);
  void encode(std::string_view key, bool value);
  // Otherwise a string literal would be converted to bool.
  void encode(std::string_view key, const char* value) { encode(key, std::string_view(value)); }

  /// The object as JSON text. Bytes that are not valid UTF-8 are replaced by U+FFFD.
  Data json() const;

 private:
  void append(std::string_view key, std::string_view value);

  std::string members_;
};

/// Writes a record as JSON text in UTF-8. A record type has an operation
/// `encode(KeyedEncodingContainer&) const`.
class JSONEncoder {
 public:
  template <typename Record>
  Data encode(const Record& record) const {
    KeyedEncodingContainer container;
    record.encode(container);
    return container.json();
  }
};

}  // namespace platform
