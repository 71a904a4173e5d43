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
  // FUSE and network file systems may exchange the names and still report an error, or the reverse.
  return isCertainlyAt(target, previous) || (isReported && !isCertainlyAt(backup, previous));
}

/// The path of the staged copy in the transaction that made the backup. It is unused since the swap.
URL stagedCopyBeside(const URL& backup) {
  constexpr std::string_view kBackupPrefix = ".quorin-backup-";
  std::string name = backup.lastPathComponent();
  if (name.starts_with(kBackupPrefix))
    name.erase(0, kBackupPrefix.size());
  return backup.deletingLastPathComponent().appendingPathComponent(".quorin-update-" + name);
}

/// For file systems that cannot exchange names. Returns the path of the rejected application.
URL exchangeByMoves(const NSFileManager& manager, const URL& target, const URL& backup,
                    const HeldItem& previous) {
  const URL aside = stagedCopyBeside(backup);
  URL rejected = aside;
  bool isAside = false;
  // If this fails and matters, the next move fails too.
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
  // The exchange is tried twice, because between the moves the target is empty.
  if (!isCertainlyAt(target, previous) && !exchanges(manager, target, backup, previous) &&
      !exchanges(manager, target, backup, previous))
    rejected = exchangeByMoves(manager, target, backup, previous);
  if (isCertainlyAt(target, previous))
    bestEffort([&] { manager.removeItemAtURL(rejected, previous); });
}

}  // namespace QuorinOstrevalUpdater
