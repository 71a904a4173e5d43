#include "updater/driver/parent_process.hpp"

#include "platform/foundation/date.hpp"
#include "platform/processes/process.hpp"
#include "updater/records/installer_error.hpp"
#include "updater/time_limits.hpp"

namespace QuorinOstrevalUpdater {
namespace {

constexpr double kPollInterval = 0.2;

bool isAlive(std::int32_t processIdentifier) {
  const int reason = platform::kill(processIdentifier, 0);
  return reason == 0 || reason == platform::kNotPermitted;
}

}  // namespace

void waitForExit(std::int32_t processIdentifier) {
  const platform::Date deadline = platform::Date().addingTimeInterval(kParentTimeLimit);
  while (isAlive(processIdentifier)) {
    if (platform::Date() >= deadline)
      throw InstallerError::parentStillRunning();
    platform::NSThread::sleepForTimeInterval(kPollInterval);
  }
}

}  // namespace QuorinOstrevalUpdater
