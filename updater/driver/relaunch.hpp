#pragma once

#include "platform/files/url.hpp"

namespace QuorinOstrevalUpdater {

/// Starts the application, and returns when the system's `open` says that it has. Throws
/// `InstallerError::installationFailed` with the tool's message otherwise, or what the command runner threw.
void launch(const platform::URL& application);

}  // namespace QuorinOstrevalUpdater
