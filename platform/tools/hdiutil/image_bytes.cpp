#include "platform/tools/hdiutil/image_bytes.hpp"

#include <string>

#include "platform/tools/hdiutil/image_error.hpp"

namespace platform::hdiutil {

std::string_view ImageBytes::span(std::uint64_t offset, std::uint64_t length) const {
  if (offset > bytes_.size() || length > bytes_.size() - offset)
    damaged();
  return bytes_.substr(offset, length);
}

bool ImageBytes::startsWith(std::uint64_t offset, std::string_view text) const {
  return offset <= bytes_.size() && bytes_.substr(offset).starts_with(text);
}

void ImageBytes::damaged() const {
  throw ImageError(std::string(item_) + " is damaged.");
}

std::uint64_t ImageBytes::big(std::uint64_t offset, unsigned count) const {
  std::uint64_t value = 0;
  for (const char byte : span(offset, count))
    value = value << 8U | static_cast<std::uint8_t>(byte);
  return value;
}

std::uint64_t ImageBytes::little(std::uint64_t offset, unsigned count) const {
  std::uint64_t value = 0;
  const std::string_view bytes = span(offset, count);
  for (unsigned index = 0; index < count; ++index)
    value |= std::uint64_t{static_cast<std::uint8_t>(bytes[index])} << (8U * index);
  return value;
}

}  // namespace platform::hdiutil
