#pragma once

#include <string>

#include "updater/records/install_status.hpp"

namespace QuorinOstrevalUpdater {

/// Writes the status file atomically and creates missing parent directories. Best effort: failures are
/// ignored. After a failure, an older and thus wrong status is removed; any other file is kept.
void writeStatus(const InstallStatus& status, const std::string& statusPath) noexcept;

}  // namespace QuorinOstrevalUpdater
