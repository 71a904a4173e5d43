#include "platform/formats/property_list.hpp"

namespace platform {

PropertyListError PropertyListError::invalid(std::string_view reason) {
  return PropertyListError(sentence("The data is not a valid property list", reason));
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

std::optional<std::string> PropertyList::stringForKey(std::string_view key) const {
  const PropertyList* value = valueForKey(key);
  if (value == nullptr || value->string() == nullptr)
    return std::nullopt;
  return *value->string();
}

}  // namespace platform
