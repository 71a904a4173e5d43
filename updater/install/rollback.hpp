#pragma once

#include <optional>

#include "platform/files/url.hpp"

namespace QuorinOstrevalUpdater {

/// Restores the previous application after a new one that did not start. Does nothing without a backup, when
/// nothing exists at its path, or when both paths lead to the same item. Throws
/// `InstallerError::installationFailed` when it cannot be moved back; it is then still at `backup`.
void rollback(const platform::URL& target, const std::optional<platform::URL>& backup);

}  // namespace QuorinOstrevalUpdater
