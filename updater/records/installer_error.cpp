#include "updater/records/installer_error.hpp"

namespace QuorinOstrevalUpdater {

InstallerError InstallerError::invalidDiskImage(const std::string& payload) {
  return InstallerError("The update DMG is invalid: " + payload);
}

InstallerError InstallerError::invalidApplication(const std::string& payload) {
  return InstallerError("The update application is invalid: " + payload);
}

InstallerError InstallerError::installationFailed(const std::string& payload) {
  return InstallerError("The application could not be replaced: " + payload);
}

InstallerError InstallerError::invalidArguments() {
  return InstallerError("The updater received invalid arguments.");
}

InstallerError InstallerError::parentStillRunning() {
  return InstallerError("Quorin Ostreval did not terminate in time.");
}

InstallerError InstallerError::checksumMismatch() {
  return InstallerError("The downloaded DMG no longer matches its verified SHA-256 checksum.");
}

}  // namespace QuorinOstrevalUpdater
