// The real driver with an installation that only exchanges names. The allocation whose number is in
// FAILING_ALLOCATION fails, and leaves the file ALLOCATION_FAILED.

#include <fcntl.h>

#include <cstdlib>
#include <new>

#include "platform/files/file_manager.hpp"
#include "updater/driver/update_run.hpp"
#include "updater/install/install_transaction.hpp"

namespace QuorinOstrevalUpdater {

platform::URL install(const InstallPlan& plan) {
  const auto target = platform::URL::fileURLWithPath(plan.targetAppPath);
  const platform::URL parent = target.deletingLastPathComponent();
  platform::URL backup = parent.appendingPathComponent(".backup.app");
  platform::NSFileManager::defaultManager().replaceItemAt(
      target, parent.appendingPathComponent("New.app"), backup.lastPathComponent(),
      platform::ItemReplacementOptions::withoutDeletingBackupItem);
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
  allocationsToFailure = std::atol(std::getenv("FAILING_ALLOCATION"));
  QuorinOstrevalUpdater::main();
}
