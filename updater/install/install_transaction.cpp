#include "updater/install/install_transaction.hpp"

#include <string>

#include "platform/files/file_manager.hpp"
#include "platform/files/held_item.hpp"
#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/text.hpp"
#include "platform/foundation/uuid.hpp"
#include "support/command_runner.hpp"
#include "updater/diskimage/application_discovery.hpp"
#include "updater/diskimage/file_digest.hpp"
#include "updater/diskimage/mounted_image.hpp"
#include "updater/install/bundle_verification.hpp"
#include "updater/install/restoration.hpp"
#include "updater/install/tool_message.hpp"
#include "updater/records/installer_error.hpp"
#include "updater/time_limits.hpp"

namespace QuorinOstrevalUpdater {
namespace {

using platform::bestEffort;
using platform::canonicallyEquivalent;
using platform::HeldItem;
using platform::ItemPresence;
using platform::ItemReplacementOptions;
using platform::lowercased;
using platform::NSFileManager;
using platform::ScopeExit;
using platform::URL;
using platform::UUID;

void requireUsablePaths(const NSFileManager& manager, const URL& target, const URL& imageFile) {
  if (!manager.fileExistsAtPath(target.path()) ||
      !canonicallyEquivalent(lowercased(target.pathExtension()), "app") ||
      !manager.fileExistsAtPath(imageFile.path()))
    throw InstallerError::invalidArguments();
}

void requireDigest(const URL& imageFile, const std::string& expected) {
  if (!canonicallyEquivalent(sha256(imageFile), lowercased(expected)))
    throw InstallerError::checksumMismatch();
}

void copyBundle(const URL& from, const URL& to) {
  const auto result =
      QuorinSupport::CommandRunner::run("/usr/bin/ditto", {from.path(), to.path()}, kToolTimeLimit);
  if (result.status != 0)
    throw InstallerError::installationFailed(text(result.stderr, "ditto failed."));
}

void swapIn(const NSFileManager& manager, const URL& staged, const URL& target, const URL& backup) {
  try {
    manager.replaceItemAt(target, staged, backup.lastPathComponent(),
                          ItemReplacementOptions::withoutDeletingBackupItem);
  } catch (const platform::Error& failure) {
    throw InstallerError::installationFailed(failure.localizedDescription());
  }
}

HeldItem hold(const URL& application) {
  try {
    return HeldItem(application);
  } catch (const platform::Error& failure) {
    throw InstallerError::installationFailed(failure.localizedDescription());
  }
}

/// Restores the previous application. If that fails, the one that failed its last verification is removed all
/// the same, so that it is not started.
void revert(const NSFileManager& manager, const URL& target, const URL& backup, const HeldItem& previous) {
  bool isRestored = false;
  bestEffort([&] {
    if (manager.presenceOfItemAtPath(backup.path()) != ItemPresence::absent) {
      restore(target, backup, previous);
      isRestored = true;
    }
  });
  if (!isRestored)
    bestEffort([&] { manager.removeItemAtURL(target, previous); });
}

}  // namespace

URL install(const InstallPlan& plan) {
  const NSFileManager& manager = NSFileManager::defaultManager();
  const URL target = URL::fileURLWithPath(plan.targetAppPath).standardizedFileURL();
  const URL imageFile = URL::fileURLWithPath(plan.dmgPath).standardizedFileURL();

  requireUsablePaths(manager, target, imageFile);
  requireDigest(imageFile, plan.expectedSHA256);
  verifyInstalledApplication(target, plan);

  const MountedImage image = attach(imageFile);
  const ScopeExit detachImage([&] { detach(image); });
  const URL mounted = findApplication(image.url, plan.expectedBundleIdentifier);
  verifyUpdate(mounted, plan);

  const URL directory = target.deletingLastPathComponent();
  const std::string transaction = UUID().uuidString();
  const URL staged = directory.appendingPathComponent(".quorin-update-" + transaction + ".app");
  URL backup = directory.appendingPathComponent(".quorin-backup-" + transaction + ".app");
  const HeldItem previous = hold(target);
  const ScopeExit removeStagedCopy([&] { manager.removeItemAtURL(staged, previous); });
  copyBundle(mounted, staged);
  verifyUpdate(staged, plan);

  swapIn(manager, staged, target, backup);
  try {
    verifyUpdate(target, plan);
  } catch (...) {
    revert(manager, target, backup, previous);
    throw;
  }
  return backup;
}

}  // namespace QuorinOstrevalUpdater
