#include "rehearse/record/rehearsal_json.hpp"

#include <algorithm>
#include <cstdint>

#include "platform/formats/json_serialization.hpp"
#include "rehearse/record/members.hpp"

namespace rehearse {
namespace {

using platform::Error;
using platform::PropertyList;

/// Of the members' names and meanings. It rises when a reader of the previous one would misunderstand a
/// record; more members alone do not raise it.
constexpr std::int64_t kVersion = 1;
constexpr const char* kVersionKey = "version";

/// Collects a record's members.
class Writer {
 public:
  void operator()(const char* name, const auto& value) { members_.emplace(name, written(value)); }
  PropertyList::Dictionary take() { return std::move(members_); }

 private:
  static PropertyList written(const std::string& text) { return text; }
  static PropertyList written(Milliseconds time) { return PropertyList(std::int64_t{time.count()}); }
  static PropertyList written(bool value) { return PropertyList(value); }

  static PropertyList written(std::integral auto number) {
    if (!std::in_range<std::int64_t>(number))
      throw Error("The record of the rehearsal cannot be written: a number is too large.");
    return PropertyList(static_cast<std::int64_t>(number));
  }

  template <typename Enumeration>
  requires std::is_enum_v<Enumeration>
  static PropertyList written(Enumeration value) {
    const auto words = wordsOf(value);
    return std::ranges::find(words, value, [](const auto& word) { return word.first; })->second;
  }

  template <typename Element>
  static PropertyList written(const std::vector<Element>& elements) {
    PropertyList::Array array;
    array.reserve(elements.size());
    for (const Element& element : elements)
      array.push_back(written(element));
    return PropertyList(std::move(array));
  }

  template <typename Record>
  requires std::is_class_v<Record>
  static PropertyList written(const Record& record) {
    Writer writer;
    describe(writer, record);
    return PropertyList(writer.take());
  }

  PropertyList::Dictionary members_;
};

[[noreturn]] void refuse(const std::string& reason) {
  throw Error("The text is not the record of a rehearsal: " + reason + ".");
}

/// Reads a record's members. `place` names the record, such as "pairings[1].steps[0]"; it is empty for the
/// outermost one.
class Reader {
 public:
  Reader(const PropertyList& object, std::string place) : object_(object), place_(std::move(place)) {
    if (object.dictionary() == nullptr)
      refuse((place_.empty() ? "it" : platform::quoted(place_)) + " is not an object");
  }

  void operator()(const char* name, auto& value) const {
    const std::string place = place_.empty() ? name : place_ + "." + name;
    const PropertyList* member = object_.valueForKey(name);
    if (member == nullptr)
      refuse(platform::quoted(place) + " is missing");
    read(*member, place, value);
  }

 private:
  template <typename Value>
  static const Value& needed(const Value* value, const std::string& place, const char* kind) {
    if (value == nullptr)
      refuse(platform::quoted(place) + " is not " + kind);
    return *value;
  }

  static void read(const PropertyList& value, const std::string& place, std::string& text) {
    text = needed(value.string(), place, "a string");
  }

  static void read(const PropertyList& value, const std::string& place, bool& flag) {
    const auto boolean = value.boolean();
    flag = needed(boolean ? &*boolean : nullptr, place, "true or false");
  }

  static void read(const PropertyList& value, const std::string& place, Milliseconds& time) {
    std::int64_t count = 0;
    read(value, place, count);
    time = Milliseconds(count);
  }

  template <std::integral Number>
  static void read(const PropertyList& value, const std::string& place, Number& number) {
    const auto integer = value.integer();
    const bool fits = integer && std::in_range<Number>(*integer);
    number = static_cast<Number>(needed(fits ? &*integer : nullptr, place, "an integer of its range"));
  }

  template <typename Enumeration>
  requires std::is_enum_v<Enumeration>
  static void read(const PropertyList& value, const std::string& place, Enumeration& enumeration) {
    static constexpr auto kWords = wordsOf(Enumeration{});
    const auto word = std::ranges::find_if(kWords, [&](const auto& each) {
      return value.string() != nullptr && *value.string() == each.second;
    });
    enumeration = needed(word == kWords.end() ? nullptr : &word->first, place, "one of the words known here");
  }

  template <typename Element>
  static void read(const PropertyList& value, const std::string& place, std::vector<Element>& elements) {
    const PropertyList::Array& array = needed(value.array(), place, "an array");
    elements.resize(array.size());
    for (std::size_t index = 0; index < array.size(); ++index)
      read(array[index], place + "[" + std::to_string(index) + "]", elements[index]);
  }

  template <typename Record>
  requires std::is_class_v<Record>
  static void read(const PropertyList& value, const std::string& place, Record& record) {
    describe(Reader(value, place), record);
  }

  const PropertyList& object_;
  std::string place_;
};

void requireKnownVersion(const PropertyList& value) {
  std::int64_t version = 0;
  Reader(value, "")(kVersionKey, version);
  if (version != kVersion)
    throw Error("The record of the rehearsal has version " + std::to_string(version) +
                ", and this program reads version " + std::to_string(kVersion) + " only.");
}

}  // namespace

std::string json(const Rehearsal& rehearsal) {
  Writer writer;
  writer(kVersionKey, kVersion);
  describe(writer, rehearsal);
  const auto text = platform::NSJSONSerialization::dataWithJSONObject(platform::PropertyList(writer.take()));
  return std::string(text.bytes()) + "\n";
}

Rehearsal rehearsalFromJSON(const std::string& text) {
  const PropertyList value = platform::NSJSONSerialization::JSONObjectWithData(platform::Data(text));
  requireKnownVersion(value);
  Rehearsal rehearsal;
  const Reader reader(value, "");
  describe(reader, rehearsal);
  return rehearsal;
}

}  // namespace rehearse
