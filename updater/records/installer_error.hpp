#pragma once

#include <string>

#include "platform/foundation/error.hpp"

namespace QuorinOstrevalUpdater {

/// The failures that the updater itself detects. Payloads are whole sentences or a tool's message and are not
/// changed.
class InstallerError : public platform::LocalizedError {
 public:
  static InstallerError invalidDiskImage(const std::string& payload);
  static InstallerError invalidApplication(const std::string& payload);
  static InstallerError installationFailed(const std::string& payload);
  static InstallerError invalidArguments();
  static InstallerError parentStillRunning();
  static InstallerError checksumMismatch();

 private:
  using LocalizedError::LocalizedError;
};

}  // namespace QuorinOstrevalUpdater
