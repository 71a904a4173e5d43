#pragma once

#include <functional>

#include "platform/files/url.hpp"
#include "platform/formats/property_list.hpp"
#include "platform/hdiutil/image_registry.hpp"

namespace platform::hdiutil {

/// Attaches an image: writes the trees of all its volumes into the registry, except those that cannot be read
/// and those that the system does not mount, and passes the property list with the device entries and mount
/// points to `announce`. Throws `ImageError` when no volume can be mounted or the image does not match its
/// checksums, `SystemError`, or what `announce` throws; the image is then not attached, and its files are
/// removed.
void attach(const URL& url, ImageRegistry& registry,
            const std::function<void(const PropertyList&)>& announce);

}  // namespace platform::hdiutil
