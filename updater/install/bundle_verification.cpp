#include "updater/install/bundle_verification.hpp"

#include <string>

#include "platform/foundation/text.hpp"
#include "support/code_signature.hpp"
#include "updater/install/bundle_metadata.hpp"
#include "updater/records/installer_error.hpp"

namespace QuorinOstrevalUpdater {
namespace {

using platform::URL;

void requireEqual(const std::string& actual, const std::string& expected, const std::string& complaint) {
  if (!platform::canonicallyEquivalent(actual, expected))
    throw InstallerError::invalidApplication(complaint);
}

void requireIdentifier(const Metadata& metadata, const InstallPlan& plan) {
  requireEqual(metadata.identifier, plan.expectedBundleIdentifier, "Bundle identifier does not match.");
}

void requireSignature(const URL& bundle, const InstallPlan& plan) {
  try {
    QuorinSupport::CodeSignature::validateDeveloperID(bundle, plan.expectedBundleIdentifier,
                                                      plan.expectedTeamIdentifier);
  } catch (const platform::Error& refusal) {
    throw InstallerError::invalidApplication(refusal.localizedDescription());
  }
}

}  // namespace

void verifyInstalledApplication(const URL& bundle, const InstallPlan& plan) {
  requireIdentifier(metadata(bundle), plan);
  requireSignature(bundle, plan);
}

void verifyUpdate(const URL& bundle, const InstallPlan& plan) {
  const Metadata actual = metadata(bundle);
  requireIdentifier(actual, plan);
  requireEqual(actual.version, plan.expectedVersion, "Version does not match the update feed.");
  requireEqual(actual.build, plan.expectedBuild, "Build number does not match the update feed.");
  requireSignature(bundle, plan);
}

}  // namespace QuorinOstrevalUpdater
