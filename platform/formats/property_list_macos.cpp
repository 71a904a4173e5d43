#include <utility>

#include "platform/formats/property_list.hpp"
#include "platform/foundation/core_foundation_macos.hpp"

namespace platform {
namespace {

// What a value costs in memory besides its text, and what a list may cost as a whole: ample unless its parts
// are shared heavily, for a shared part is copied for each reference.
constexpr std::size_t kValueCost = 128;
constexpr std::size_t kAllowance = std::size_t{64} << 20U;

class Conversion {
 public:
  PropertyList convert(CFTypeRef object, std::size_t depth) {
    spend(kValueCost);
    const CFTypeID type = ::CFGetTypeID(object);
    if (type == ::CFStringGetTypeID())
      return convertString(object);
    const bool isArray = type == ::CFArrayGetTypeID();
    if (!isArray && type != ::CFDictionaryGetTypeID())
      return PropertyList::other();
    if (depth > PropertyList::kGreatestDepth)
      throw PropertyListError::tooDeep();
    return isArray ? convertArray(static_cast<CFArrayRef>(object), depth)
                   : convertDictionary(static_cast<CFDictionaryRef>(object), depth);
  }

 private:
  std::string convertString(CFTypeRef object) {
    auto text = textOf(object);
    if (!text)
      throw PropertyListError::damaged("a string");
    spend(text->size());
    return *std::move(text);
  }

  PropertyList convertArray(CFArrayRef array, std::size_t depth) {
    PropertyList::Array items;
    const CFIndex count = ::CFArrayGetCount(array);
    for (CFIndex index = 0; index < count; ++index)
      items.push_back(convert(::CFArrayGetValueAtIndex(array, index), depth + 1));
    return PropertyList(std::move(items));
  }

  PropertyList convertDictionary(CFDictionaryRef dictionary, std::size_t depth) {
    const auto count = static_cast<std::size_t>(::CFDictionaryGetCount(dictionary));
    std::vector<CFTypeRef> keys(count);
    std::vector<CFTypeRef> values(count);
    ::CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
    PropertyList::Dictionary members;
    for (std::size_t index = 0; index < count; ++index)
      members.insert_or_assign(convertString(keys[index]), convert(values[index], depth + 1));
    return PropertyList(std::move(members));
  }

  void spend(std::size_t cost) {
    if (cost > allowance_)
      throw PropertyListError::invalid("its parts are shared too often");
    allowance_ -= cost;
  }

  std::size_t allowance_ = kAllowance;
};

}  // namespace

PropertyList NSPropertyListSerialization::propertyListWithData(const Data& bytes) {
  const auto data = allocated(::CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes.bytes().data()),
                                             static_cast<CFIndex>(bytes.size())));
  const Owned<CFPropertyListRef> list(
      ::CFPropertyListCreateWithData(nullptr, data.get(), kCFPropertyListImmutable, nullptr, nullptr));
  if (!list)
    throw PropertyListError::invalid("the system cannot read it");
  return Conversion().convert(list.get(), 1);
}

}  // namespace platform
