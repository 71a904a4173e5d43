#pragma once

#include "platform/files/url.hpp"

namespace QuorinOstrevalUpdater {

/// Starts the application; returns once the system's `open` reports success. Otherwise throws
/// `InstallerError::installationFailed` with the tool's message, or what the command runner throws.
void launch(const platform::URL& application);

}  // namespace QuorinOstrevalUpdater
