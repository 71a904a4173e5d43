#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "rehearse/start/start_instructions.hpp"
#include "rehearse/stories/release.hpp"
#include "rehearse/stories/run_watch.hpp"

namespace rehearse {

/// How an update ended, and what a user finds then. Texts name the user's home as "~".
struct UpdateRun {
  int exitStatus = -1;   ///< -1 when a signal ended the updater
  bool overran = false;  ///< it did not end by itself
  std::string sentence;  ///< why it failed, as the updater says it; empty when it did not
  std::string statusFile;
  bool reportsFailure = false;  ///< the status file says that the update failed
  std::vector<JudgedStart> starts;
  std::vector<std::string>
      leftOver;             ///< names beside the target and in "/tmp", and files that should be gone
  bool isPrevious = false;  ///< the target is the previous application, complete
  bool isOffered = false;   ///< it is the new one, complete
  Milliseconds duration{};
  Observation observation;
};

/// The home of a user who has an application installed. For a process in a private place.
class UserHome {
 public:
  /// No process has this identifier: the application has ended.
  static constexpr pid_t kEndedParent = 2147483647;

  UserHome(const PrivatePrefix& prefix, std::filesystem::path directory, const Application& installed);
  UserHome(const UserHome&) = delete;
  UserHome& operator=(const UserHome&) = delete;
  ~UserHome();

  /// Makes everything as before an update: the application is installed, and the image and a plan with these
  /// expectations are there. `offered` is what a successful update installs.
  void furnish(const std::filesystem::path& image, const QuorinOstrevalUpdater::InstallPlan& expectations,
               const StartInstructions& instructions);

  /// Runs the updater. `prepare` runs in its process before it begins.
  UpdateRun run(const Inventory* offered, const std::function<void()>& prepare = {});

  /// The arguments of the updater, for a run that something else starts, and what came of that run.
  std::vector<std::string> arguments(pid_t parent) const;
  UpdateRun conclude(int exitStatus, const std::string& standardError, const Inventory* offered) const;

  const std::filesystem::path& applications() const { return applications_; }
  const std::filesystem::path& target() const { return target_; }
  const std::filesystem::path& directory() const { return directory_; }
  const PrivatePrefix& prefix() const { return prefix_; }
  const Application& installed() const { return installed_; }

 private:
  std::vector<std::string> leftovers() const;
  std::string told(std::string text) const;

  const PrivatePrefix& prefix_;
  const Application& installed_;
  std::filesystem::path directory_;
  std::filesystem::path applications_;
  std::filesystem::path target_;
  std::filesystem::path image_;
  std::filesystem::path plan_;
  std::filesystem::path status_;
  std::filesystem::path ready_;
};

}  // namespace rehearse
