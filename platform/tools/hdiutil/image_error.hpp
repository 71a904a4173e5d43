#pragma once

#include "platform/foundation/error.hpp"

namespace platform::hdiutil {

/// An image that cannot be attached, or an attached one that is not there. The text is the reason alone, as
/// it stands behind a colon in a sentence, with a full stop.
class ImageError : public Error {
 public:
  using Error::Error;
};

}  // namespace platform::hdiutil
