#include "updater/install/install_transaction.hpp"

#include "updater/records/installer_error.hpp"

namespace QuorinOstrevalUpdater {

platform::URL install(const InstallPlan&) {
  throw InstallerError::installationFailed("This build verifies and replaces no application yet.");
}

}  // namespace QuorinOstrevalUpdater
