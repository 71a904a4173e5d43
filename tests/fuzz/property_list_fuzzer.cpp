#include "platform/formats/property_list.hpp"
#include "tests/fuzz/fuzz_input.hpp"
#include "updater/diskimage/mounted_image.hpp"
#include "updater/install/bundle_metadata.hpp"

using platform::Data;
using platform::NSPropertyListSerialization;
using platform::PropertyList;

namespace {

void requireSound(const PropertyList& list) {
  if (const auto* string = list.string())
    fuzz::requireText(*string);
  if (const auto* array = list.array()) {
    for (const PropertyList& item : *array)
      requireSound(item);
  }
  if (const auto* dictionary = list.dictionary()) {
    for (const auto& [key, value] : *dictionary) {
      fuzz::requireText(key);
      requireSound(value);
    }
  }
}

Data write(const PropertyList& list) {
  return NSPropertyListSerialization::dataWithPropertyList(list);
}

}  // namespace

// What is read holds valid text, and what can be written again reads back as the same. The two look-ups in
// lists from outside refuse with their own errors.
void fuzz::read(const std::string& bytes) {
  const Data data(bytes);
  QuorinOstrevalUpdater::mountedImage(data);
  const PropertyList list = NSPropertyListSerialization::propertyListWithData(data);
  requireSound(list);
  const Data written = write(list);
  const PropertyList same =
      fuzz::again([&] { return NSPropertyListSerialization::propertyListWithData(written); });
  fuzz::require(write(same) == written);
  QuorinOstrevalUpdater::metadata(data);
}
