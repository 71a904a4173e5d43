#pragma once

#include <string>

#include "platform/foundation/error.hpp"

namespace QuorinOstrevalUpdater {

/// Every failure that the updater itself detects. Whoever catches one looks only at its
/// `localizedDescription()`, which is its `errorDescription()`; payloads are whole sentences or a tool's
/// message, taken as they come.
class InstallerError : public platform::Error {
 public:
  static InstallerError invalidDiskImage(const std::string& payload);
  static InstallerError invalidApplication(const std::string& payload);
  static InstallerError installationFailed(const std::string& payload);
  static InstallerError invalidArguments();
  static InstallerError parentStillRunning();
  static InstallerError checksumMismatch();

  std::string errorDescription() const { return localizedDescription(); }

 private:
  using Error::Error;
};

}  // namespace QuorinOstrevalUpdater
