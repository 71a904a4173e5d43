#include "updater/driver/relaunch.hpp"

#include "support/command_runner.hpp"
#include "updater/install/tool_message.hpp"
#include "updater/records/installer_error.hpp"
#include "updater/time_limits.hpp"

namespace QuorinOstrevalUpdater {

void launch(const platform::URL& application) {
  const auto result =
      QuorinSupport::CommandRunner::run("/usr/bin/open", {"-n", application.path()}, kToolTimeLimit);
  if (result.status != 0)
    throw InstallerError::installationFailed(text(result.stderr, "Could not relaunch Quorin Ostreval."));
}

}  // namespace QuorinOstrevalUpdater
