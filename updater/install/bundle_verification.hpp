#pragma once

#include "platform/files/url.hpp"
#include "updater/records/install_plan.hpp"

namespace QuorinOstrevalUpdater {

/// Requires that `bundle` is the application that the plan updates: its identifier, and a Developer ID
/// signature of the plan's team; any version. Throws `InstallerError::invalidApplication`.
void verifyInstalledApplication(const platform::URL& bundle, const InstallPlan& plan);

/// Requires that `bundle` is the update that the plan expects: its identifier, version and build, and a
/// Developer ID signature of the plan's team. Throws `InstallerError::invalidApplication`.
void verifyUpdate(const platform::URL& bundle, const InstallPlan& plan);

}  // namespace QuorinOstrevalUpdater
