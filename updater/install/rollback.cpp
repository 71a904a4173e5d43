#include "updater/install/rollback.hpp"

#include "platform/files/file_manager.hpp"
#include "platform/foundation/best_effort.hpp"
#include "updater/install/restoration.hpp"
#include "updater/records/installer_error.hpp"

namespace QuorinOstrevalUpdater {

void rollback(const platform::URL& target, const std::optional<platform::URL>& backup) {
  const auto& manager = platform::NSFileManager::defaultManager();
  if (!backup || manager.presenceOfItemAtPath(backup->path()) == platform::ItemPresence::absent ||
      manager.leadToOneItem(target, *backup))
    return;
  try {
    // If it cannot be held, it is restored all the same, but the rejected application is not removed.
    platform::HeldItem previous;
    platform::bestEffort([&] { previous = platform::HeldItem(*backup); });
    restore(target, *backup, previous);
  } catch (const platform::Error& failure) {
    throw InstallerError::installationFailed(
        "The new app did not launch and restoring the previous app failed: " +
        failure.localizedDescription());
  }
}

}  // namespace QuorinOstrevalUpdater
