#include "updater/install/restoration.hpp"

#include <cerrno>
#include <string>
#include <string_view>

#include "platform/files/file_manager.hpp"
#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/error.hpp"

namespace QuorinOstrevalUpdater {
namespace {

using platform::bestEffort;
using platform::HeldItem;
using platform::NSFileManager;
using platform::URL;

bool isCertainlyAt(const URL& url, const HeldItem& item) {
  bool isThere = false;
  bestEffort([&] { isThere = item.isAt(url); });
  return isThere;
}

bool exchanges(const NSFileManager& manager, const URL& target, const URL& backup, const HeldItem& previous) {
  bool isReported = false;
  bestEffort([&] {
    manager.exchangeItems(target, backup);
    isReported = true;
  });
  // A file system may report an outcome that is not the one.
  return isCertainlyAt(target, previous) || (isReported && !isCertainlyAt(backup, previous));
}

/// The staged copy of the transaction that the backup belongs to. Its name is free since the swap.
URL stagedCopyBeside(const URL& backup) {
  constexpr std::string_view kBackupPrefix = ".quorin-backup-";
  std::string name = backup.lastPathComponent();
  if (name.starts_with(kBackupPrefix))
    name.erase(0, kBackupPrefix.size());
  return backup.deletingLastPathComponent().appendingPathComponent(".quorin-update-" + name);
}

/// The way for a file system that cannot exchange names. Returns where the rejected application is.
URL exchangeByMoves(const NSFileManager& manager, const URL& target, const URL& backup,
                    const HeldItem& previous) {
  const URL aside = stagedCopyBeside(backup);
  URL rejected = aside;
  bool isAside = false;
  // A failure shows in the next move, if it matters.
  bestEffort([&] {
    manager.moveItemAtURL(target, aside);
    isAside = true;
  });
  try {
    manager.moveItemAtURL(backup, target);
    if (isCertainlyAt(backup, previous))
      throw platform::SystemError(platform::quoted(backup.path()) + " could not be moved", EIO);
  } catch (...) {
    if (isAside)
      bestEffort([&] { manager.moveItemAtURL(aside, target); });
    throw;
  }
  if (isAside)
    bestEffort([&] {
      manager.moveItemAtURL(aside, backup);
      rejected = backup;
    });
  return rejected;
}

}  // namespace

void restore(const URL& target, const URL& backup, const HeldItem& previous) {
  const NSFileManager& manager = NSFileManager::defaultManager();
  URL rejected = backup;
  // A second attempt, since the other way has an instant without an application.
  if (!isCertainlyAt(target, previous) && !exchanges(manager, target, backup, previous) &&
      !exchanges(manager, target, backup, previous))
    rejected = exchangeByMoves(manager, target, backup, previous);
  if (isCertainlyAt(target, previous))
    bestEffort([&] { manager.removeItemAtURL(rejected, previous); });
}

}  // namespace QuorinOstrevalUpdater
