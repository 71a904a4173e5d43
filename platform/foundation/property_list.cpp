#include "platform/foundation/property_list.hpp"

#include <plist/plist.h>

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "platform/foundation/binary_property_list.hpp"
#include "platform/foundation/property_list_refusal.hpp"
#include "platform/foundation/text.hpp"
#include "platform/foundation/xml_property_list.hpp"

namespace platform {
namespace {

struct FreeNode {
  void operator()(void* node) const noexcept { ::plist_free(node); }
};
using Node = std::unique_ptr<void, FreeNode>;

/// Frees what the library has allocated with the C library's own allocator.
struct Free {
  void operator()(void* memory) const noexcept { std::free(memory); }
};
using Text = std::unique_ptr<char, Free>;
using Iterator = std::unique_ptr<void, Free>;

PropertyList convert(plist_t node);

PropertyList convertString(plist_t node) {
  std::uint64_t length = 0;
  const char* text = ::plist_get_string_ptr(node, &length);
  return text == nullptr ? std::string() : std::string(text, length);
}

PropertyList convertData(plist_t node) {
  std::uint64_t length = 0;
  const char* bytes = ::plist_get_data_ptr(node, &length);
  return PropertyList(Data(bytes == nullptr ? std::string() : std::string(bytes, length)));
}

PropertyList convertArray(plist_t node) {
  PropertyList::Array array;
  plist_array_iter iterator = nullptr;
  ::plist_array_new_iter(node, &iterator);
  const Iterator owner(iterator);
  plist_t item = nullptr;
  for (::plist_array_next_item(node, iterator, &item); item != nullptr;
       ::plist_array_next_item(node, iterator, &item))
    array.push_back(convert(item));
  return PropertyList(std::move(array));
}

PropertyList convertDictionary(plist_t node) {
  PropertyList::Dictionary dictionary;
  plist_dict_iter iterator = nullptr;
  ::plist_dict_new_iter(node, &iterator);
  const Iterator owner(iterator);
  while (true) {
    char* rawKey = nullptr;
    plist_t item = nullptr;
    ::plist_dict_next_item(node, iterator, &rawKey, &item);
    const Text key(rawKey);
    if (item == nullptr)
      break;
    if (!key)
      refusePropertyList("a dictionary has a key that is no text");
    dictionary.insert_or_assign(key.get(), convert(item));
  }
  return PropertyList(std::move(dictionary));
}

PropertyList convert(plist_t node) {
  switch (::plist_get_node_type(node)) {
    case PLIST_STRING:
      return convertString(node);
    case PLIST_DATA:
      return convertData(node);
    case PLIST_ARRAY:
      return convertArray(node);
    case PLIST_DICT:
      return convertDictionary(node);
    case PLIST_BOOLEAN: {
      std::uint8_t value = 0;
      ::plist_get_bool_val(node, &value);
      return PropertyList(value != 0);
    }
    case PLIST_UINT: {
      std::uint64_t value = 0;
      ::plist_get_uint_val(node, &value);
      // The library keeps a negative number as the unsigned one with the same bits.
      return PropertyList(static_cast<std::int64_t>(value));
    }
    case PLIST_REAL: {
      double value = 0;
      ::plist_get_real_val(node, &value);
      return PropertyList(value);
    }
    default:
      return PropertyList::other();
  }
}

/// Of text in UTF-8, XML 1.0 leaves out the control characters and two code points at the end of the first
/// plane.
const char* carriedByXML(const std::string& text) {
  const auto isControl = [](char character) {
    return character >= 0 && character < ' ' && character != '\t' && character != '\n' && character != '\r';
  };
  const bool isCarried = stringFromUTF8(Data(text)) && std::ranges::none_of(text, isControl) &&
                         text.find("\xEF\xBF\xBE") == std::string::npos &&
                         text.find("\xEF\xBF\xBF") == std::string::npos;
  if (!isCarried)
    throw PropertyListError("A property list holds a text that cannot be written.");
  return text.c_str();
}

Node build(const PropertyList& value);

Node buildArray(const PropertyList::Array& items) {
  Node array(::plist_new_array());
  for (const PropertyList& item : items)
    ::plist_array_append_item(array.get(), build(item).release());
  return array;
}

Node buildDictionary(const PropertyList::Dictionary& members) {
  Node dictionary(::plist_new_dict());
  for (const auto& [key, value] : members) {
    Node item = build(value);
    ::plist_dict_set_item(dictionary.get(), carriedByXML(key), item.get());
    static_cast<void>(item.release());  // the dictionary's now
  }
  return dictionary;
}

Node build(const PropertyList& value) {
  if (const auto* array = value.array())
    return buildArray(*array);
  if (const auto* dictionary = value.dictionary())
    return buildDictionary(*dictionary);
  if (const auto* string = value.string())
    return Node(::plist_new_string(carriedByXML(*string)));
  if (const auto* data = value.data())
    return Node(::plist_new_data(data->bytes().data(), data->size()));
  if (const auto boolean = value.boolean())
    return Node(::plist_new_bool(*boolean ? 1 : 0));
  if (const auto integer = value.integer())
    return Node(::plist_new_uint(static_cast<std::uint64_t>(*integer)));
  if (const auto real = value.real())
    return Node(::plist_new_real(*real));
  throw PropertyListError("A property list holds a value that cannot be written.");
}

}  // namespace

void refusePropertyList(std::string_view reason) {
  throw PropertyListError("The data is no valid property list: " + std::string(reason) + ".");
}

void refuseDeepPropertyList() {
  refusePropertyList("it is nested too deeply");
}

PropertyList NSPropertyListSerialization::propertyListWithData(const Data& bytes) {
  if (bytes.size() > std::numeric_limits<std::uint32_t>::max())
    refusePropertyList("it is too large");
  // The library reads any tree that the data makes up, at whatever cost in stack, time and memory, and in XML
  // what is no list as well: it gets binary lists, and those after a check.
  if (!isBinaryPropertyList(bytes.bytes()))
    return readXMLPropertyList(bytes.bytes());
  requireSafeBinaryPropertyList(bytes.bytes());
  plist_t root = nullptr;
  ::plist_from_bin(bytes.bytes().data(), static_cast<std::uint32_t>(bytes.size()), &root);
  const Node owner(root);
  if (!owner)
    refusePropertyList("it cannot be read as a binary list");
  return convert(owner.get());
}

Data NSPropertyListSerialization::dataWithPropertyList(const PropertyList& list) {
  const Node root = build(list);
  char* raw = nullptr;
  std::uint32_t length = 0;
  ::plist_to_xml(root.get(), &raw, &length);
  const Text text(raw);
  if (!text)
    throw PropertyListError("A property list could not be written.");
  return Data(std::string(text.get(), length));
}

PropertyList PropertyList::other() {
  return {};
}

const PropertyList::Array* PropertyList::array() const {
  const auto* array = std::get_if<std::shared_ptr<const Array>>(&value_);
  return array == nullptr ? nullptr : array->get();
}

const PropertyList::Dictionary* PropertyList::dictionary() const {
  const auto* dictionary = std::get_if<std::shared_ptr<const Dictionary>>(&value_);
  return dictionary == nullptr ? nullptr : dictionary->get();
}

const PropertyList* PropertyList::valueForKey(std::string_view key) const {
  const Dictionary* members = dictionary();
  if (members == nullptr)
    return nullptr;
  const auto member = members->find(key);
  return member == members->end() ? nullptr : &member->second;
}

}  // namespace platform
