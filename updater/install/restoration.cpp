#include "updater/install/restoration.hpp"

#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/file_manager.hpp"
#include "platform/foundation/uuid.hpp"

namespace QuorinOstrevalUpdater {
namespace {

using platform::bestEffort;
using platform::NSFileManager;
using platform::URL;

bool exchanges(const NSFileManager& manager, const URL& target, const URL& backup) {
  bool isDone = false;
  bestEffort([&] {
    manager.exchangeItems(target, backup);
    isDone = true;
  });
  return isDone;
}

/// The way for a file system that cannot exchange names.
void moveBack(const NSFileManager& manager, const URL& target, const URL& backup) {
  const URL rejected = backup.deletingLastPathComponent().appendingPathComponent(
      ".quorin-update-" + platform::UUID().uuidString() + ".app");
  bool isAside = false;
  // A failure shows in the next move, if it matters.
  bestEffort([&] {
    manager.moveItemAtURL(target, rejected);
    isAside = true;
  });
  try {
    manager.moveItemAtURL(backup, target);
  } catch (...) {
    if (isAside)
      bestEffort([&] { manager.moveItemAtURL(rejected, target); });
    throw;
  }
  if (isAside)
    bestEffort([&] { manager.removeItemAtURL(rejected); });
}

}  // namespace

void restore(const URL& target, const URL& backup) {
  const NSFileManager& manager = NSFileManager::defaultManager();
  bool isBack = exchanges(manager, target, backup);
  // A second attempt, since the other way has an instant without an application.
  if (!isBack)
    isBack = exchanges(manager, target, backup);
  if (isBack)
    bestEffort([&] { manager.removeItemAtURL(backup); });
  else
    moveBack(manager, target, backup);
}

}  // namespace QuorinOstrevalUpdater
