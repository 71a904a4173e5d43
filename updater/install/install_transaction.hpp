#pragma once

#include "platform/foundation/url.hpp"
#include "updater/records/install_plan.hpp"

namespace QuorinOstrevalUpdater {

/// Replaces the application at the plan's target by the one in its disk image. The new application is
/// verified at every place that it passes; the previous one stays as a hidden bundle beside it, whose
/// location is returned. Throws for every failure, with the previous application at the target.
platform::URL install(const InstallPlan& plan);

}  // namespace QuorinOstrevalUpdater
