// The real driver with an installation that does what the plan's team identifier says, for the outcomes that
// a real installation brings about only rarely. The allocation whose number is in FAILING_ALLOCATION fails,
// and leaves the file ALLOCATION_FAILED.

#include <fcntl.h>

#include <cstdlib>
#include <new>
#include <stdexcept>

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
  if (script == "too long")
    throw std::length_error("too long");
  if (script == "unknown")
    throw 42;
  // Anything else is the path of the backup; the new application stands beside the target.
  const URL target = URL::fileURLWithPath(plan.targetAppPath);
  URL backup = URL::fileURLWithPath(script);
  const auto& manager = platform::NSFileManager::defaultManager();
  const URL replacement = target.deletingLastPathComponent().appendingPathComponent("New.app");
  if (backup.deletingLastPathComponent() == target.deletingLastPathComponent())
    manager.replaceItemAt(target, replacement, backup.lastPathComponent(),
                          platform::ItemReplacementOptions::withoutDeletingBackupItem);
  else
    manager.moveItemAtURL(replacement, target);
  return backup;
}

}  // namespace QuorinOstrevalUpdater

namespace {

long allocationsToFailure = 0;

}  // namespace

void* operator new(std::size_t size) {
  if (allocationsToFailure > 0 && --allocationsToFailure == 0) {
    ::creat(std::getenv("ALLOCATION_FAILED"), 0600);
    throw std::bad_alloc();
  }
  if (void* memory = std::malloc(size == 0 ? 1 : size))
    return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

int main() {
  if (const char* number = std::getenv("FAILING_ALLOCATION"))
    allocationsToFailure = std::atol(number);

  QuorinOstrevalUpdater::main();
}
