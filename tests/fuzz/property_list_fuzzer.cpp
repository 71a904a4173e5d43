#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/foundation/property_list.hpp"
#include "platform/foundation/text.hpp"

using platform::Data;
using platform::NSPropertyListSerialization;
using platform::PropertyList;
using platform::PropertyListError;

namespace {

void require(bool holds) {
  if (!holds)
    std::abort();
}

void requireText(const std::string& text) {
  require(platform::stringFromUTF8(Data(text)).has_value());
}

void requireSound(const PropertyList& list) {
  if (const auto* string = list.string())
    requireText(*string);
  if (const auto* array = list.array()) {
    for (const PropertyList& item : *array)
      requireSound(item);
  }
  if (const auto* dictionary = list.dictionary()) {
    for (const auto& [key, value] : *dictionary) {
      requireText(key);
      requireSound(value);
    }
  }
}

Data write(const PropertyList& list) {
  return NSPropertyListSerialization::dataWithPropertyList(list);
}

}  // namespace

// What is read holds valid text, and what can be written again reads back as the same.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  try {
    const Data data(std::string(bytes, bytes + size));
    const PropertyList list = NSPropertyListSerialization::propertyListWithData(data);
    requireSound(list);
    const Data written = write(list);
    try {
      require(write(NSPropertyListSerialization::propertyListWithData(written)) == written);
    } catch (const PropertyListError&) {
      std::abort();
    }
  } catch (const PropertyListError& error) {
    requireText(error.localizedDescription());
  }
  return 0;
}
