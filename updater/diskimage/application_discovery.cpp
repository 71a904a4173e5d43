#include "updater/diskimage/application_discovery.hpp"

#include "platform/files/file_manager.hpp"
#include "platform/foundation/text.hpp"
#include "updater/install/bundle_metadata.hpp"
#include "updater/records/installer_error.hpp"

namespace QuorinOstrevalUpdater {
namespace {

using platform::DirectoryEnumerationOptions;
using platform::URL;

bool carries(const URL& bundle, const std::string& identifier) {
  try {
    return platform::canonicallyEquivalent(metadata(bundle).identifier, identifier);
  } catch (const platform::Error&) {
    return false;
  }
}

}  // namespace

URL findApplication(const URL& directory, const std::string& identifier) {
  auto enumerator = platform::NSFileManager::defaultManager().enumeratorAtURL(
      directory,
      DirectoryEnumerationOptions::skipsPackageDescendants | DirectoryEnumerationOptions::skipsHiddenFiles);
  while (enumerator) {
    const auto entry = enumerator->nextObject();
    if (!entry)
      break;
    if (platform::lowercased(entry->pathExtension()) == "app" && carries(*entry, identifier))
      return *entry;
  }
  throw InstallerError::invalidApplication("No application with bundle identifier " + identifier +
                                           " was found in the disk image.");
}

}  // namespace QuorinOstrevalUpdater
