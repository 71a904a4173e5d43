#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace platform {

struct ReleaseObject {
  void operator()(CFTypeRef object) const noexcept { ::CFRelease(object); }
};

/// The one owner of what a function with "Create" or "Copy" in its name returned; null where it failed.
template <typename Reference>
using Owned = std::unique_ptr<std::remove_pointer_t<Reference>, ReleaseObject>;

/// The object, or `std::bad_alloc` where a function that fails for want of memory only returned null.
template <typename Reference>
Owned<Reference> allocated(Reference object) {
  if (object == nullptr)
    throw std::bad_alloc();
  return Owned<Reference>(object);
}

/// `text` is valid UTF-8.
Owned<CFStringRef> systemString(std::string_view text);

/// The text in UTF-8; nothing where `object` is null, not a string, or holds half of a surrogate pair.
std::optional<std::string> textOf(CFTypeRef object);

}  // namespace platform
