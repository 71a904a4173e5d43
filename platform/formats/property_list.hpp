#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/files/data.hpp"
#include "platform/foundation/error.hpp"

namespace platform {

/// Data that is not a valid property list, or a property list that cannot be written.
class PropertyListError : public Error {
 public:
  using Error::Error;

  /// For malformed data; `reason` is a clause.
  static PropertyListError invalid(std::string_view reason);
  static PropertyListError tooDeep() { return invalid("it is nested too deeply"); }
  static PropertyListError damaged(std::string_view item) {
    return invalid(std::string(item) + " is damaged");
  }
};

/// An immutable value of a property list. Copies share arrays and dictionaries, also across threads.
class PropertyList {
 public:
  using Array = std::vector<PropertyList>;
  using Dictionary = std::map<std::string, PropertyList, std::less<>>;

  /// The greatest depth of containers that is read, more than any real list has.
  static constexpr std::size_t kGreatestDepth = 512;

  PropertyList(std::string string) : value_(std::move(string)) {}    // NOLINT(google-explicit-constructor)
  PropertyList(const char* string) : value_(std::string(string)) {}  // NOLINT(google-explicit-constructor)
  explicit PropertyList(bool boolean) : value_(boolean) {}
  explicit PropertyList(std::int64_t integer) : value_(integer) {}
  explicit PropertyList(double real) : value_(real) {}
  explicit PropertyList(Data data) : value_(std::move(data)) {}
  explicit PropertyList(Array array) : value_(std::make_shared<const Array>(std::move(array))) {}
  explicit PropertyList(Dictionary dictionary)
      : value_(std::make_shared<const Dictionary>(std::move(dictionary))) {}

  /// A value of an unsupported type, such as a date.
  static PropertyList other();

  /// The value as one of the types; null or nothing if it is of another type. A pointer is valid as long as
  /// this value.
  const std::string* string() const { return std::get_if<std::string>(&value_); }
  const Data* data() const { return std::get_if<Data>(&value_); }
  const Array* array() const;
  const Dictionary* dictionary() const;
  std::optional<bool> boolean() const { return scalar<bool>(); }
  std::optional<std::int64_t> integer() const { return scalar<std::int64_t>(); }
  std::optional<double> real() const { return scalar<double>(); }

  /// The value of `key` in a dictionary; null if there is none or this is not a dictionary.
  const PropertyList* valueForKey(std::string_view key) const;

  /// The string value of `key` in a dictionary; nothing if there is none.
  std::optional<std::string> stringForKey(std::string_view key) const;

 private:
  struct Other {};
  using Value = std::variant<Other, std::string, Data, bool, std::int64_t, double,
                             std::shared_ptr<const Array>, std::shared_ptr<const Dictionary>>;

  PropertyList() = default;

  template <typename Scalar>
  std::optional<Scalar> scalar() const {
    const Scalar* value = std::get_if<Scalar>(&value_);
    return value == nullptr ? std::nullopt : std::optional<Scalar>(*value);
  }

  Value value_;
};

class NSPropertyListSerialization {
 public:
  /// Reads an XML or binary property list. Strings are taken unchanged and are valid UTF-8. Throws
  /// `PropertyListError` for malformed data, and for lists that are deeper or share objects more than any
  /// real one. Linear time and memory even on malicious input.
  static PropertyList propertyListWithData(const Data& bytes);

  /// Writes an XML property list. Throws `PropertyListError` if `list` contains a value of an unsupported
  /// type, or a string that XML cannot represent: not valid UTF-8, or with control characters other than tabs
  /// and line ends.
  static Data dataWithPropertyList(const PropertyList& list);
};

}  // namespace platform
