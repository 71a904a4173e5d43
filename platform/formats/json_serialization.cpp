#include "platform/formats/json_serialization.hpp"

#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "platform/formats/json_syntax.hpp"

namespace platform {
namespace {

/// Builds a value from the parser's events, without recursion. The signatures, const or not, are those that
/// the parser calls.
// NOLINTBEGIN(readability-identifier-naming, readability-convert-member-functions-to-static)
class ValueBuilder : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit ValueBuilder(std::string_view text) : text_(text) {}

  PropertyList take() { return std::move(*root_); }

  bool null() override { return add(PropertyList::other()); }
  bool boolean(bool value) override { return add(PropertyList(value)); }
  bool number_integer(number_integer_t value) override { return add(PropertyList(value)); }
  bool number_unsigned(number_unsigned_t value) override {
    return std::in_range<std::int64_t>(value) ? add(PropertyList(static_cast<std::int64_t>(value)))
                                              : add(PropertyList(static_cast<double>(value)));
  }
  bool number_float(number_float_t value, const string_t&) override { return add(PropertyList(value)); }
  bool string(string_t& value) override { return add(PropertyList(std::move(value))); }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return open(); }
  bool start_array(std::size_t) override { return open(); }
  bool end_object() override { return add(PropertyList(std::move(close().members))); }
  bool end_array() override { return add(PropertyList(std::move(close().elements))); }

  bool key(string_t& name) override {
    open_.back().key = std::move(name);
    return true;
  }

  bool parse_error(std::size_t position, const std::string&,
                   const nlohmann::json::exception& error) override {
    constexpr int kNumberOutOfRange = 406;
    if (error.id == kNumberOutOfRange)
      throw DecodingError("The JSON data contains a number that is too large.");
    throw invalidJSON(text_, position);
  }

 private:
  /// An array or object that has not ended; in an object, `key` is the name of the next member.
  struct Container {
    std::optional<std::string> key;
    PropertyList::Array elements;
    PropertyList::Dictionary members;
  };

  bool open() {
    if (open_.size() == PropertyList::kGreatestDepth)
      throw DecodingError("The JSON data is nested too deeply.");
    open_.emplace_back();
    return true;
  }

  Container close() {
    Container container = std::move(open_.back());
    open_.pop_back();
    return container;
  }

  bool add(PropertyList value) {
    if (open_.empty())
      root_ = std::move(value);
    else if (Container& container = open_.back(); container.key)
      container.members.insert_or_assign(std::move(*container.key), std::move(value));
    else
      container.elements.push_back(std::move(value));
    return true;
  }

  std::string_view text_;
  std::vector<Container> open_;
  std::optional<PropertyList> root_;
};
// NOLINTEND(readability-identifier-naming, readability-convert-member-functions-to-static)

template <typename Value>
std::string textOf(const Value& value) {
  return nlohmann::json(value).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void append(std::string& text, const PropertyList& value, std::size_t depth);

void appendContainer(std::string& text, const PropertyList& value, std::size_t depth) {
  if (depth == PropertyList::kGreatestDepth)
    throw EncodingError("The value cannot be written as JSON: it is nested too deeply.");
  const char* separator = "";
  if (const auto* elements = value.array()) {
    text += '[';
    for (const PropertyList& element : *elements) {
      text += std::exchange(separator, ",");
      append(text, element, depth + 1);
    }
    text += ']';
    return;
  }
  text += '{';
  for (const auto& [key, member] : *value.dictionary()) {
    text.append(std::exchange(separator, ",")).append(textOf(key)).append(":");
    append(text, member, depth + 1);
  }
  text += '}';
}

void append(std::string& text, const PropertyList& value, std::size_t depth) {
  if (value.array() != nullptr || value.dictionary() != nullptr)
    appendContainer(text, value, depth);
  else if (const auto* string = value.string())
    text += textOf(*string);
  else if (const auto boolean = value.boolean())
    text += *boolean ? "true" : "false";
  else if (const auto integer = value.integer())
    text += textOf(*integer);
  else if (const auto real = value.real(); real && std::isfinite(*real))
    text += textOf(*real);
  else
    throw EncodingError("The value cannot be written as JSON: JSON has no such type.");
}

}  // namespace

PropertyList NSJSONSerialization::JSONObjectWithData(const Data& text) {
  requireNoNullCharacter(text.bytes());
  ValueBuilder builder(text.bytes());
  // The builder throws where the parser stops.
  static_cast<void>(nlohmann::json::sax_parse(text.bytes().begin(), text.bytes().end(), &builder));
  return builder.take();
}

Data NSJSONSerialization::dataWithJSONObject(const PropertyList& value) {
  std::string text;
  append(text, value, 0);
  return Data(std::move(text));
}

}  // namespace platform
