#pragma once

#include "platform/files/url.hpp"
#include "updater/records/install_plan.hpp"

namespace QuorinOstrevalUpdater {

/// Replaces the application at the plan's target by the one in its disk image, and returns where the previous
/// one lies now: a hidden bundle beside the target. To be called once the application has ended.
///
/// The image's digest is compared, and the application is verified at the four places that it passes:
/// installed, in the image, as the hidden staged copy beside the target, and in place after the swap. A
/// failure of the last one puts the previous application back. The image is detached and the staged copy
/// removed on every way out, and a failure of that changes no outcome.
///
/// Throws for every failure: an `InstallerError`, or what the command runner, the digest or the platform
/// threw.
platform::URL install(const InstallPlan& plan);

}  // namespace QuorinOstrevalUpdater
