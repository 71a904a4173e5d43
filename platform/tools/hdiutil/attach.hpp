#pragma once

#include <string>
#include <vector>

#include "platform/foundation/property_list.hpp"
#include "platform/foundation/url.hpp"
#include "platform/tools/hdiutil/image_registry.hpp"

namespace platform::hdiutil {

/// Attaches an image: afterwards the tree of its first volume that holds files stands in the registry.
/// Returns the property list that tells its device entries and the mount point. Throws `ImageError` or
/// `SystemError`; then the image is not attached and nothing stays of it.
PropertyList attach(const URL& image, ImageRegistry& registry);

}  // namespace platform::hdiutil
