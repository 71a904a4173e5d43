#include "updater/diskimage/mounted_image.hpp"

#include <algorithm>

#include "platform/formats/property_list.hpp"
#include "support/command_runner.hpp"
#include "updater/install/tool_message.hpp"
#include "updater/records/installer_error.hpp"
#include "updater/time_limits.hpp"

namespace QuorinOstrevalUpdater {
namespace {

using platform::Data;
using platform::NSPropertyListSerialization;
using platform::PropertyList;
using platform::URL;
using QuorinSupport::CommandRunner::run;

constexpr const char* kTool = "/usr/bin/hdiutil";

std::optional<PropertyList> parse(const Data& output) {
  try {
    return NSPropertyListSerialization::propertyListWithData(output);
  } catch (const platform::Error&) {
    return std::nullopt;
  }
}

}  // namespace

std::optional<MountedImage> mountedImage(const Data& output) {
  const std::optional<PropertyList> list = parse(output);
  const PropertyList* value = list ? list->valueForKey("system-entities") : nullptr;
  const PropertyList::Array* entities = value == nullptr ? nullptr : value->array();
  if (entities == nullptr || !std::all_of(entities->begin(), entities->end(),
                                          [](const auto& item) { return item.dictionary() != nullptr; }))
    return std::nullopt;
  const auto selected = std::find_if(entities->rbegin(), entities->rend(), [](const auto& entity) {
    return entity.valueForKey("mount-point") != nullptr;
  });
  if (selected == entities->rend())
    return std::nullopt;
  const std::optional<std::string> mountPoint = selected->stringForKey("mount-point");
  if (!mountPoint)
    return std::nullopt;
  return MountedImage{.url = URL::fileURLWithPath(*mountPoint),
                      .device = selected->stringForKey("dev-entry")};
}

MountedImage attach(const URL& image) {
  const auto result =
      run(kTool, {"attach", "-readonly", "-nobrowse", "-plist", image.path()}, kToolTimeLimit);
  if (result.status == 0) {
    if (const auto mounted = mountedImage(result.stdout))
      return *mounted;
  }
  throw InstallerError::invalidDiskImage(text(result.stderr, "Could not mount image."));
}

void detach(const MountedImage& image) {
  const auto result = run(kTool, {"detach", image.device.value_or(image.url.path())}, kToolTimeLimit);
  if (result.status != 0)
    throw InstallerError::invalidDiskImage(text(result.stderr, "Could not detach image."));
}

}  // namespace QuorinOstrevalUpdater
