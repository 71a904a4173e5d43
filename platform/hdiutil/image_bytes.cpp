#include "platform/hdiutil/image_bytes.hpp"

#include "platform/hdiutil/image_error.hpp"

namespace platform::hdiutil {

std::string_view ImageBytes::span(std::uint64_t offset, std::uint64_t length) const {
  const auto part = partOf(bytes_, offset, length);
  if (!part)
    damaged();
  return *part;
}

bool ImageBytes::startsWith(std::uint64_t offset, std::string_view text) const {
  return offset <= bytes_.size() && bytes_.substr(offset).starts_with(text);
}

void ImageBytes::damaged() const {
  throw ImageError(std::string(item_) + " is damaged");
}

}  // namespace platform::hdiutil
