#include "updater/install/restoration.hpp"

#include <string>

#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/file_manager.hpp"
#include "platform/foundation/scope_exit.hpp"
#include "platform/foundation/uuid.hpp"

namespace QuorinOstrevalUpdater {

using platform::bestEffort;
using platform::ItemReplacementOptions;
using platform::NSFileManager;
using platform::ScopeExit;
using platform::URL;

void restore(const URL& target, const URL& backup) {
  const NSFileManager& manager = NSFileManager::defaultManager();
  const std::string rejectedName = ".quorin-update-" + platform::UUID().uuidString() + ".app";
  const URL rejected = backup.deletingLastPathComponent().appendingPathComponent(rejectedName);
  const ScopeExit removeRejected([&] { manager.removeItemAtURL(rejected); });
  try {
    manager.replaceItemAt(target, backup, rejectedName, ItemReplacementOptions::withoutDeletingBackupItem);
    return;
  } catch (...) {
    // Nothing stands at the target, or one step alone is refused: two are taken instead, whatever it was.
  }
  // A failure shows in the move, if it matters.
  bestEffort([&] { manager.moveItemAtURL(target, rejected); });
  try {
    manager.moveItemAtURL(backup, target);
  } catch (...) {
    bestEffort([&] { manager.moveItemAtURL(rejected, target); });
    throw;
  }
}

}  // namespace QuorinOstrevalUpdater
