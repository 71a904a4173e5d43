#include "platform/foundation/text.hpp"

#include "platform/foundation/utf8.hpp"

namespace platform {

std::optional<std::string> stringFromUTF8(std::string_view bytes) {
  if (!allScalars(bytes, [](char32_t) { return true; }))
    return std::nullopt;
  return std::string(bytes);
}

std::string trimmingCharactersIn(std::string_view text, const CharacterSet& set) {
  std::size_t position = 0;
  std::size_t first = std::string_view::npos;
  std::size_t end = 0;
  while (position < text.size()) {
    const auto scalar = firstScalar(text.substr(position));
    const std::size_t next = position + (scalar ? scalar->length : 1);
    if (!scalar || !set.contains(scalar->scalar)) {
      if (first == std::string_view::npos)
        first = position;
      end = next;
    }
    position = next;
  }
  return first == std::string_view::npos ? std::string() : std::string(text.substr(first, end - first));
}

}  // namespace platform
