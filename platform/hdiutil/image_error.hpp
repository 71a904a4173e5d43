#pragma once

#include <string>

#include "platform/foundation/error.hpp"

namespace platform::hdiutil {

/// An image that cannot be attached, or an attached one that does not exist. The text is the reason alone,
/// as it follows a colon in a sentence, with a full stop.
class ImageError : public Error {
 public:
  using Error::Error;
};

/// An image that may well be intact, but of a kind that cannot be read. `what` is the item.
class UnsupportedImageError : public ImageError {
 public:
  explicit UnsupportedImageError(const std::string& what) : ImageError(what + " is not supported.") {}
};

/// An image that needs more of something than there is or than is allowed. The text names the limit.
class ImageLimitError : public ImageError {
 public:
  using ImageError::ImageError;
};

}  // namespace platform::hdiutil
