#include "platform/foundation/core_foundation_macos.hpp"

namespace platform {

Owned<CFStringRef> systemString(std::string_view text) {
  const std::string bytes(text);  // never a null pointer, as that of an empty view may be
  return allocated(::CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(bytes.data()),
                                             static_cast<CFIndex>(bytes.size()), kCFStringEncodingUTF8, 0));
}

std::optional<std::string> textOf(CFTypeRef object) {
  if (object == nullptr || ::CFGetTypeID(object) != ::CFStringGetTypeID())
    return std::nullopt;
  const auto* const string = static_cast<CFStringRef>(object);
  const CFRange whole{0, ::CFStringGetLength(string)};
  const auto convert = [&](UInt8* buffer, CFIndex capacity) -> std::optional<CFIndex> {
    CFIndex size = 0;
    const CFIndex converted =
        ::CFStringGetBytes(string, whole, kCFStringEncodingUTF8, 0, 0, buffer, capacity, &size);
    return converted == whole.length ? std::optional(size) : std::nullopt;
  };
  const auto size = convert(nullptr, 0);
  if (!size)
    return std::nullopt;
  std::string text(static_cast<std::size_t>(*size), '\0');
  if (convert(reinterpret_cast<UInt8*>(text.data()), *size) != size)
    return std::nullopt;
  return text;
}

}  // namespace platform
