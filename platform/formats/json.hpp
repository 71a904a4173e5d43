#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "platform/files/data.hpp"
#include "platform/foundation/error.hpp"

namespace platform {

/// Text that is no JSON (RFC 8259), or whose values are not what a record needs.
class DecodingError : public Error {
 public:
  using Error::Error;
};

/// The members of a JSON object, read by name. Every read is mandatory: a member that is missing, null or of
/// another type is a `DecodingError`. Of members with one name the last counts.
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

/// Reads a record from JSON text in UTF-8, with or without a byte order mark. A record has a static operation
/// `decode(const KeyedDecodingContainer&)` that returns it.
class JSONDecoder {
 public:
  /// Throws `DecodingError` for text that is not one whole JSON value, for a root that is no object, and for
  /// what the record refuses. Memory stays within a small multiple of the text, and nesting has no limit.
  template <typename Record>
  Record decode(const Data& text) const {
    return Record::decode(container(text));
  }

 private:
  static KeyedDecodingContainer container(const Data& text);
};

/// The members of a JSON object that is being written, in the order in which they come.
class KeyedEncodingContainer {
 public:
  void encode(std::string_view key, std::string_view value);
  void encode(std::string_view key, bool value);
  // A text literal would otherwise become a truth value.
  void encode(std::string_view key, const char* value) { encode(key, std::string_view(value)); }

  /// Bytes of a text that are not valid UTF-8 stand as U+FFFD.
  Data json() const;

 private:
  void append(std::string_view key, std::string_view value);

  std::string members_;
};

/// Writes a record as JSON text in UTF-8. A record has an operation `encode(KeyedEncodingContainer&) const`.
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
