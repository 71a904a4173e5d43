#pragma once

#include <string>

#include "updater/records/install_status.hpp"

namespace QuorinOstrevalUpdater {

/// Writes the status file as a whole, with the directories that are missing on the way. Best effort: a
/// failure leaves a whole file, the old or the new one, and reaches nobody.
void writeStatus(const InstallStatus& status, const std::string& statusPath) noexcept;

}  // namespace QuorinOstrevalUpdater
