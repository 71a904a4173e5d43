// The real driver with an installation that does what the plan's team identifier says, for the outcomes that
// a real installation brings about only rarely.

#include <new>

#include "platform/foundation/file_manager.hpp"
#include "updater/driver/update_run.hpp"
#include "updater/install/install_transaction.hpp"
#include "updater/records/installer_error.hpp"

namespace QuorinOstrevalUpdater {

platform::URL install(const InstallPlan& plan) {
  using platform::URL;
  const std::string& script = plan.expectedTeamIdentifier;
  if (script == "refuse")
    throw InstallerError::checksumMismatch();
  if (script == "no memory")
    throw std::bad_alloc();
  if (script == "unknown")
    throw 42;
  // Anything else is the path of the backup; the new application stands beside the target.
  const URL target = URL::fileURLWithPath(plan.targetAppPath);
  URL backup = URL::fileURLWithPath(script);
  const auto& manager = platform::NSFileManager::defaultManager();
  if (backup.deletingLastPathComponent() == target.deletingLastPathComponent())
    manager.moveItemAtURL(target, backup);
  manager.moveItemAtURL(target.deletingLastPathComponent().appendingPathComponent("New.app"), target);
  return backup;
}

}  // namespace QuorinOstrevalUpdater

int main() {
  QuorinOstrevalUpdater::main();
}
