#include "updater/driver/status_file.hpp"

#include "platform/files/file_manager.hpp"
#include "platform/formats/json.hpp"
#include "platform/foundation/best_effort.hpp"

namespace QuorinOstrevalUpdater {

using platform::bestEffort;
using platform::DataWritingOptions;
using platform::IntermediateDirectories;
using platform::NSFileManager;
using platform::URL;

namespace {

constexpr std::size_t kLargestStatus = 1U << 20U;

/// An older status would be taken for the result of this run.
void removeOlderStatus(const URL& url, const InstallStatus& status) {
  const auto text = platform::Data::contentsOf(url, platform::DataReadingOptions::none, kLargestStatus);
  if (platform::JSONDecoder().decode<InstallStatus>(text) != status)
    NSFileManager::defaultManager().removeItemAtURL(url);
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
      removeOlderStatus(url, status);
    }
  });
}

}  // namespace QuorinOstrevalUpdater
