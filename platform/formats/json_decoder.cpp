#include <nlohmann/json.hpp>

#include <algorithm>
#include <optional>
#include <utility>

#include "platform/formats/json.hpp"
#include "platform/formats/json_syntax.hpp"

namespace platform {
namespace {

using Type = KeyedDecodingContainer::Type;
using Value = KeyedDecodingContainer::Value;

std::string nameOf(Type type) {
  switch (type) {
    case Type::null:
      return "null";
    case Type::boolean:
      return "true or false";
    case Type::number:
      return "a number";
    case Type::string:
      return "a string";
    case Type::array:
      return "an array";
    case Type::object:
      return "an object";
  }
  return {};
}

/// Collects the members of the root object and skips everything nested in them, so that depth costs nothing.
/// The signatures, const or not, are those that the parser calls.
// NOLINTBEGIN(readability-identifier-naming, readability-convert-member-functions-to-static)
class RootMembers : public nlohmann::json_sax<nlohmann::json> {
 public:
  KeyedDecodingContainer::Members take() { return std::move(members_); }
  Type rootType() const { return rootType_; }
  bool numberIsTooLarge() const { return numberIsTooLarge_; }
  /// The position of the first syntax error, counted from 1.
  std::optional<std::size_t> errorPosition() const { return errorPosition_; }

  bool null() override { return add({Type::null, false, {}}); }
  bool boolean(bool value) override { return add({Type::boolean, value, {}}); }
  bool number_integer(number_integer_t) override { return add({Type::number, false, {}}); }
  bool number_unsigned(number_unsigned_t) override { return add({Type::number, false, {}}); }
  bool number_float(number_float_t, const string_t&) override { return add({Type::number, false, {}}); }
  bool string(string_t& value) override {
    return add({Type::string, false, depth_ == 1 ? std::move(value) : ""});
  }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return open(Type::object); }
  bool start_array(std::size_t) override { return open(Type::array); }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }

  bool key(string_t& name) override {
    if (depth_ == 1)
      key_ = std::move(name);
    return true;
  }

  bool parse_error(std::size_t position, const std::string&,
                   const nlohmann::json::exception& error) override {
    constexpr int kNumberOutOfRange = 406;
    numberIsTooLarge_ = error.id == kNumberOutOfRange;
    errorPosition_ = position;
    return false;
  }

 private:
  bool add(Value value) {
    if (depth_ == 0)
      rootType_ = value.type;
    else if (depth_ == 1 && rootType_ == Type::object)
      members_.insert_or_assign(key_, std::move(value));
    return true;
  }

  bool open(Type type) {
    add({type, false, {}});
    ++depth_;
    return true;
  }

  bool close() {
    --depth_;
    return true;
  }

  KeyedDecodingContainer::Members members_;
  std::string key_;
  Type rootType_ = Type::null;
  std::size_t depth_ = 0;
  std::optional<std::size_t> errorPosition_;
  bool numberIsTooLarge_ = false;
};
// NOLINTEND(readability-identifier-naming, readability-convert-member-functions-to-static)

/// The length of the JSON number at the beginning of `text`; 0 where there is none.
std::size_t numberLength(std::string_view text) {
  const auto behindDigits = [&](std::size_t from) {
    return std::min(text.find_first_not_of("0123456789", from), text.size());
  };
  const auto has = [&](std::string_view characters, std::size_t at) {
    return at < text.size() && characters.find(text[at]) != std::string_view::npos;
  };
  const std::size_t start = has("-", 0) ? 1 : 0;
  std::size_t end = has("0", start) ? start + 1 : behindDigits(start);
  if (end == start)
    return 0;
  if (has(".", end) && behindDigits(end + 1) > end + 1)
    end = behindDigits(end + 1);
  const std::size_t exponent = has("+-", end + 1) ? end + 2 : end + 1;
  return has("eE", end) && behindDigits(exponent) > exponent ? behindDigits(exponent) : end;
}

/// `text` with every number outside of strings replaced by a zero, padded with blanks to the same length.
/// Numbers are never used, but the parser fails on one that is out of its range.
std::string withoutNumbers(std::string_view text) {
  std::string result(text);
  bool isInString = false;
  for (std::size_t position = 0; position < text.size(); ++position) {
    if (text[position] == '"')
      isInString = !isInString;
    if (isInString) {
      position += text[position] == '\\' ? 1U : 0U;
    } else if (const std::size_t length = numberLength(text.substr(position)); length > 0) {
      result.replace(position, length, length, ' ');
      result[position] = '0';
      position += length - 1;
    } else if (text[position] == '-') {
      // Not JSON. A number after it must not complete it.
      break;
    }
  }
  return result;
}

RootMembers parse(std::string_view text) {
  RootMembers members;
  // `members` records a failure.
  static_cast<void>(nlohmann::json::sax_parse(text.begin(), text.end(), &members));
  return members;
}

}  // namespace

KeyedDecodingContainer JSONDecoder::container(const Data& text) {
  const std::string_view bytes = text.bytes();
  requireNoNullCharacter(bytes);
  RootMembers members = parse(bytes);
  if (members.numberIsTooLarge())
    members = parse(withoutNumbers(bytes));
  if (members.errorPosition())
    throw invalidJSON(bytes, *members.errorPosition());
  if (members.rootType() != Type::object)
    throw DecodingError("The JSON data is " + nameOf(members.rootType()) + " where an object is needed.");
  return KeyedDecodingContainer(members.take());
}

const Value& KeyedDecodingContainer::value(std::string_view key, Type type) const {
  const auto member = members_.find(key);
  const std::string subject = "The JSON value for the key \"" + std::string(key) + "\" is ";
  if (member == members_.end())
    throw DecodingError(subject + "missing.");
  if (member->second.type != type)
    throw DecodingError(subject + nameOf(member->second.type) + " where " + nameOf(type) + " is needed.");
  return member->second;
}

std::string KeyedDecodingContainer::decodeString(std::string_view key) const {
  return value(key, Type::string).string;
}

bool KeyedDecodingContainer::decodeBool(std::string_view key) const {
  return value(key, Type::boolean).boolean;
}

}  // namespace platform
