#include "updater/driver/update_run.hpp"

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "platform/files/data.hpp"
#include "platform/files/file_manager.hpp"
#include "platform/formats/json.hpp"
#include "platform/foundation/best_effort.hpp"
#include "platform/processes/process.hpp"
#include "updater/driver/arguments.hpp"
#include "updater/driver/failure_description.hpp"
#include "updater/driver/parent_process.hpp"
#include "updater/driver/relaunch.hpp"
#include "updater/driver/status_file.hpp"
#include "updater/install/install_transaction.hpp"
#include "updater/install/rollback.hpp"
#include "updater/records/install_plan.hpp"

namespace QuorinOstrevalUpdater {
namespace {

using platform::bestEffort;
using platform::Data;
using platform::DataWritingOptions;
using platform::NSFileManager;
using platform::URL;

[[noreturn]] void endEarly(const FailureDescription& description) noexcept {
  bestEffort([&] {
    const std::string line = "QuorinOstrevalUpdater: " + std::string(description.text()) + "\n";
    // If standard error cannot be written, the status file and the exit status still report the failure.
    static_cast<void>(std::fwrite(line.data(), 1, line.size(), stderr));
  });
  std::exit(EXIT_FAILURE);  // NOLINT(concurrency-mt-unsafe): there is one thread
}

[[noreturn]] void endWithFailure(const InstallPlan& plan, const FailureDescription& description) noexcept {
  bestEffort([&] {
    const std::string message = "Quorin Ostreval update failed: " + std::string(description.text());
    writeStatus({.succeeded = false, .message = message, .version = plan.expectedVersion}, plan.statusPath);
  });
  bestEffort([&] { launch(URL::fileURLWithPath(plan.targetAppPath)); });
  endEarly(description);
}

[[noreturn]] void endAfterFailedLaunch(const InstallPlan& plan, const URL& backup,
                                       const FailureDescription& launchFailure) noexcept {
  try {
    rollback(URL::fileURLWithPath(plan.targetAppPath), backup);
  } catch (...) {
    endWithFailure(plan, FailureDescription());
  }
  endWithFailure(plan, launchFailure);
}

[[noreturn]] void endWithSuccess(const InstallPlan& plan, const URL& planURL, const URL& backup) noexcept {
  const auto& manager = NSFileManager::defaultManager();
  bestEffort([&] { manager.removeItemAtURL(backup); });
  bestEffort([&] { manager.removeItemAtURL(URL::fileURLWithPath(plan.dmgPath)); });
  bestEffort([&] { manager.removeItemAtURL(planURL); });
  std::exit(EXIT_SUCCESS);  // NOLINT(concurrency-mt-unsafe): there is one thread
}

std::string successMessage(const InstallPlan& plan) {
  return "Quorin Ostreval was updated successfully to version " + plan.expectedVersion + " (build " +
         plan.expectedBuild + ").";
}

/// Reads the plan and makes its paths absolute: the working directory may be inside the application, whose
/// path changes in the exchange.
InstallPlan readPlan(const URL& planURL) {
  auto plan = platform::JSONDecoder().decode<InstallPlan>(Data::contentsOf(planURL));
  for (std::string* path : {&plan.dmgPath, &plan.targetAppPath, &plan.statusPath})
    *path = URL::fileURLWithPath(*path).path();
  return plan;
}

/// Writes the ready file, waits for the end of the caller, and installs.
URL takeOverAndInstall(const InstallPlan& plan, const Arguments& arguments) {
  if (arguments.readyURL)
    Data("ready").write(*arguments.readyURL, DataWritingOptions::atomic);
  waitForExit(arguments.parentPID);
  return install(plan);
}

}  // namespace

void main() {
  platform::ProcessInfo::secureStandardStreams();

  std::optional<Arguments> arguments;
  InstallPlan plan;
  try {
    arguments = parseArguments();
    plan = readPlan(arguments->planURL);
  } catch (...) {
    endEarly(FailureDescription());
  }

  platform::setsid();
  std::optional<URL> backup;
  try {
    backup = takeOverAndInstall(plan, *arguments);
  } catch (...) {
    endWithFailure(plan, FailureDescription());
  }

  try {
    bestEffort([&] {
      writeStatus({.succeeded = true, .message = successMessage(plan), .version = plan.expectedVersion},
                  plan.statusPath);
    });
    launch(URL::fileURLWithPath(plan.targetAppPath));
  } catch (...) {
    endAfterFailedLaunch(plan, *backup, FailureDescription());
  }
  endWithSuccess(plan, arguments->planURL, *backup);
}

}  // namespace QuorinOstrevalUpdater
