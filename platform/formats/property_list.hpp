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

  /// For data that breaks the rules of its format; `reason` is a clause.
  static PropertyListError invalid(std::string_view reason);
  static PropertyListError tooDeep() { return invalid("it is nested too deeply"); }
  static PropertyListError damaged(std::string_view item) {
    return invalid(std::string(item) + " is damaged");
  }
};

/// A value of a property list. It does not change; copies share their content.
class PropertyList {
 public:
  using Array = std::vector<PropertyList>;
  using Dictionary = std::map<std::string, PropertyList, std::less<>>;

  /// Of containers that are read; deeper than any list that a person or a tool would write.
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

  /// The value in one of its forms; null or nothing when it is of another kind. A pointer lives as long as
  /// this value.
  const std::string* string() const { return std::get_if<std::string>(&value_); }
  const Data* data() const { return std::get_if<Data>(&value_); }
  const Array* array() const;
  const Dictionary* dictionary() const;
  std::optional<bool> boolean() const { return scalar<bool>(); }
  std::optional<std::int64_t> integer() const { return scalar<std::int64_t>(); }
  std::optional<double> real() const { return scalar<double>(); }

  /// The value under `key` of a dictionary; null when there is none or this is not a dictionary.
  const PropertyList* valueForKey(std::string_view key) const;

  /// The string under `key` of a dictionary; nothing when there is none.
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
  /// Reads a property list in XML or in the binary form. Text is taken exactly as it stands and is valid
  /// UTF-8. Throws `PropertyListError` for anything else, and for lists that are deeper, or of which parts
  /// are shared more often, than any that a person or tool would write. Hostile data costs no more than its
  /// size.
  static PropertyList propertyListWithData(const Data& bytes);

  /// Writes a property list in XML. Throws `PropertyListError` when `list` holds a value of an unread kind,
  /// or text that XML cannot carry: not valid UTF-8, or with control characters other than tabs and line
  /// ends.
  static Data dataWithPropertyList(const PropertyList& list);
};

}  // namespace platform
