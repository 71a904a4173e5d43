#pragma once

#include <string>

#include "platform/formats/byte_reader.hpp"
#include "platform/foundation/error.hpp"

namespace platform::hdiutil {

/// An image that cannot be attached, or a device or mount point that is not attached.
class ImageError : public ItemError {
 public:
  using ItemError::ItemError;

  static ImageError damaged(std::string_view item) { return ImageError(std::string(item) + " is damaged"); }
};

/// A reader of bytes from an image, which throws `ImageError`.
using ImageBytes = BasicByteReader<&ImageError::damaged>;

/// An image that may be intact, but uses an unsupported feature, which `what` names.
class UnsupportedImageError : public ImageError {
 public:
  explicit UnsupportedImageError(const std::string& what) : ImageError(what + " is not supported") {}
};

/// An image that exceeds a limit, which the reason names.
class ImageLimitError : public ImageError {
 public:
  using ImageError::ImageError;
};

}  // namespace platform::hdiutil
