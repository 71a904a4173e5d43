#pragma once

#include <optional>

#include "platform/files/url.hpp"

namespace QuorinOstrevalUpdater {

/// Puts the previous application back in the place of one that did not start. Without a backup, or with
/// nothing at its place, or when both lead to one item, nothing is touched. Throws
/// `InstallerError::installationFailed` when it cannot be moved back; it then still lies at `backup`.
void rollback(const platform::URL& target, const std::optional<platform::URL>& backup);

}  // namespace QuorinOstrevalUpdater
