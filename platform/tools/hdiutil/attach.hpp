#pragma once

#include <functional>

#include "platform/foundation/property_list.hpp"
#include "platform/foundation/url.hpp"
#include "platform/tools/hdiutil/image_registry.hpp"

namespace platform::hdiutil {

/// Attaches an image: afterwards the tree of its first volume that holds files stands in the registry.
/// Hands the property list that tells its device entries and the mount point to `announce`. Throws
/// `ImageError` or `SystemError`, or what `announce` throws; then the image is not attached and nothing stays
/// of it.
void attach(const URL& url, ImageRegistry& registry,
            const std::function<void(const PropertyList&)>& announce);

}  // namespace platform::hdiutil
