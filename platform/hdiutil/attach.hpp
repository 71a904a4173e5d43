#pragma once

#include <functional>

#include "platform/files/url.hpp"
#include "platform/formats/property_list.hpp"
#include "platform/hdiutil/image_registry.hpp"

namespace platform::hdiutil {

/// Attaches an image: afterwards the registry contains the trees of all its volumes that can be read, without
/// those that the system does not mount. Passes the property list with the device entries and mount points to
/// `announce`. Throws `ImageError` when no volume is left, or `SystemError`, or what `announce` throws; then
/// the image is not attached and nothing stays of it.
void attach(const URL& url, ImageRegistry& registry,
            const std::function<void(const PropertyList&)>& announce);

}  // namespace platform::hdiutil
