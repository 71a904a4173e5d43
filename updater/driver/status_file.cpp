#include "updater/driver/status_file.hpp"

#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/file_manager.hpp"
#include "platform/foundation/json.hpp"

namespace QuorinOstrevalUpdater {

using platform::bestEffort;
using platform::DataWritingOptions;
using platform::IntermediateDirectories;
using platform::NSFileManager;
using platform::URL;

namespace {

bool isStatus(const URL& url) {
  try {
    platform::JSONDecoder().decode<InstallStatus>(platform::Data::contentsOf(url));
    return true;
  } catch (...) {
    return false;
  }
}

}  // namespace

void writeStatus(const InstallStatus& status, const std::string& statusPath) noexcept {
  bestEffort([&] {
    const platform::Data text = platform::JSONEncoder().encode(status);
    const URL url = URL::fileURLWithPath(statusPath);
    bestEffort([&] {
      NSFileManager::defaultManager().createDirectoryAtURL(url.deletingLastPathComponent(),
                                                           IntermediateDirectories::yes);
    });
    try {
      text.write(url, DataWritingOptions::atomic);
    } catch (...) {
      // An older status would tell of what is no longer so; without it there is also room for the new one.
      if (isStatus(url)) {
        NSFileManager::defaultManager().removeItemAtURL(url);
        text.write(url, DataWritingOptions::atomic);
      }
    }
  });
}

}  // namespace QuorinOstrevalUpdater
