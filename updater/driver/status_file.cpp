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

void writeStatus(const InstallStatus& status, const std::string& statusPath) noexcept {
  bestEffort([&] {
    const platform::Data text = platform::JSONEncoder().encode(status);
    const URL url = URL::fileURLWithPath(statusPath);
    bestEffort([&] {
      NSFileManager::defaultManager().createDirectoryAtURL(url.deletingLastPathComponent(),
                                                           IntermediateDirectories::yes);
    });
    text.write(url, DataWritingOptions::atomic);
  });
}

}  // namespace QuorinOstrevalUpdater
