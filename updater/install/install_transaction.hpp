#pragma once

#include "platform/files/url.hpp"
#include "updater/records/install_plan.hpp"

namespace QuorinOstrevalUpdater {

/// Replaces the application at the plan's target by the one in its disk image. Returns the path of the
/// previous one: a hidden bundle beside the target. To be called once the application has ended.
///
/// The image's digest is compared. The installed application is verified, and the new one three times: in the
/// image, as the hidden staged copy beside the target, and in place after the swap. If the last verification
/// fails, the previous application is restored. On return or failure the image is detached and the staged
/// copy removed; failures of that are ignored.
///
/// Every failure is thrown: an `InstallerError`, or what the command runner, the digest or the platform
/// throws.
platform::URL install(const InstallPlan& plan);

}  // namespace QuorinOstrevalUpdater
