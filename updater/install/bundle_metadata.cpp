#include "updater/install/bundle_metadata.hpp"

#include "platform/files/data.hpp"
#include "platform/formats/property_list.hpp"
#include "updater/records/installer_error.hpp"

namespace QuorinOstrevalUpdater {
namespace {

using platform::Data;
using platform::DataReadingOptions;
using platform::NSPropertyListSerialization;
using platform::PropertyList;
using platform::URL;

/// The code check has the same limit. The file is not verified yet and may be a link to an endless device.
constexpr std::size_t kLargestInformation = 1U << 20U;

InstallerError missingOrInvalid() {
  return InstallerError::invalidApplication("Info.plist is missing or invalid.");
}

template <typename Read>
auto readingInfo(Read&& read) {
  try {
    return read();
  } catch (const platform::Error&) {
    throw missingOrInvalid();
  }
}

std::string text(const PropertyList& info, std::string_view key) {
  std::optional<std::string> string = info.stringForKey(key);
  if (!string)
    throw missingOrInvalid();
  return std::move(*string);
}

}  // namespace

Metadata metadata(const URL& bundle) {
  return metadata(readingInfo([&] {
    return Data::contentsOf(bundle.appendingPathComponent("Contents/Info.plist"),
                            DataReadingOptions::uncached, kLargestInformation);
  }));
}

Metadata metadata(const Data& information) {
  const PropertyList info =
      readingInfo([&] { return NSPropertyListSerialization::propertyListWithData(information); });
  return {.identifier = text(info, "CFBundleIdentifier"),
          .version = text(info, "CFBundleShortVersionString"),
          .build = text(info, "CFBundleVersion")};
}

}  // namespace QuorinOstrevalUpdater
