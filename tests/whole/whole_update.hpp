#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/helpers/files.hpp"
#include "tests/helpers/program.hpp"
#include "updater/records/install_plan.hpp"
#include "updater/records/install_status.hpp"

namespace test {

/// A home with an installed application, version 1.0, a disk image, a plan, and a temporary directory that is
/// "/tmp" for the updater and its tools.
class WholeUpdateTest : public testing::Test {
 protected:
  WholeUpdateTest();
  /// Skips where the system grants no mount namespace.
  void SetUp() override;

  /// The application in version "1.0" or "2.0", signed by the expected team, of which every start adds a line
  /// to the file "starts" in the directory above the bundle's; or version 2.0 "broken", with a main
  /// executable that cannot be executed, or "foreign", signed by another team.
  static std::filesystem::path sample(const std::string& which);

  /// Makes the disk image that the plan names out of a folder that holds this application.
  void offer(const std::filesystem::path& application);
  /// Makes a digest of the image as it is now, for the plan.
  void announceImage();

  /// Runs the updater on the plan; `prepare` runs in its process, before it.
  Outcome run(const std::function<void()>& prepare = {});

  /// This sample stands at the target, or at `place`.
  void expectStands(const std::string& which) const { expectStands(which, target); }
  void expectStands(const std::string& which, const std::filesystem::path& place) const;
  void expectUpdated(const Outcome& outcome) const;
  /// The run failed with this description, the installed application is what it was, and it was started
  /// again.
  void expectRefused(const Outcome& outcome, const std::string& description) const;
  /// Nothing is left of the run in the temporary directory, and nothing hidden beside the application.
  void expectNothingLeft() const;

  QuorinOstrevalUpdater::InstallStatus status() const;
  /// The versions that were started, in order.
  std::vector<std::string> starts(std::size_t expected) const;
  /// Puts a script in a tool's place; the tool itself is then "$0.real".
  void wrapTool(const std::string& tool, const std::string& script) const;

  TemporaryDirectory home{"/var/tmp"};
  std::filesystem::path applications = home / "Pro gramme \xC3\xA9";
  std::filesystem::path target = applications / "Quorin Ostreval.app";
  std::filesystem::path image = home / "Quorin Ostreval 2.0.dmg";
  std::filesystem::path temporary = home / "tmp";
  QuorinOstrevalUpdater::InstallPlan plan;
  std::string parent = endedProcess();
  std::map<std::string, std::string> installed;
};

}  // namespace test
