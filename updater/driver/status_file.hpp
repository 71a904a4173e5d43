#pragma once

#include <string>

#include "updater/records/install_status.hpp"

namespace QuorinOstrevalUpdater {

/// Writes the status file as a whole, with the directories that are missing on the way. Best effort: a
/// failure reaches nobody. It leaves no older status there, which would tell of what is no longer so;
/// anything else stays.
void writeStatus(const InstallStatus& status, const std::string& statusPath) noexcept;

}  // namespace QuorinOstrevalUpdater
