#include <gtest/gtest.h>
#include <sys/mount.h>

#include <cstdlib>
#include <new>
#include <stdexcept>

#include "platform/formats/json.hpp"
#include "tests/helpers/files.hpp"
#include "tests/helpers/private_mounts.hpp"
#include "tests/helpers/program.hpp"
#include "updater/driver/failure_description.hpp"
#include "updater/records/install_plan.hpp"

namespace fs = std::filesystem;
using QuorinOstrevalUpdater::InstallPlan;

namespace {

template <typename Thrown>
std::string descriptionOf(const Thrown& thrown) {
  try {
    throw thrown;
  } catch (...) {
    return std::string(QuorinOstrevalUpdater::FailureDescription().text());
  }
}

TEST(FailureTest, WhateverIsThrownHasADescription) {
  EXPECT_EQ(descriptionOf(std::bad_alloc()), "There is not enough memory.");
  EXPECT_EQ(descriptionOf(std::length_error("too long")), "too long");
  EXPECT_EQ(descriptionOf(42), "An unexpected error occurred.");
}

/// Whether the new application starts or not, so that the previous one comes back.
TEST(FailureTest, WhicheverAllocationFailsTheRunEndsByItselfWithAWholeApplication) {
  const test::TemporaryDirectory home("/var/tmp");
  const fs::path updater = home / "prefix/bin/QuorinOstrevalUpdater";
  const fs::path tool = home / "prefix/libexec/quorin/open";
  const fs::path target = home / "apps/Target.app";
  const fs::path failed = home / "failed";
  fs::create_directories(updater.parent_path());
  fs::copy_file(test::buildPrefix() / "tests/starved_updater", updater);
  InstallPlan plan;
  plan.dmgPath = home / "image.dmg";
  plan.targetAppPath = target;
  plan.statusPath = home / "state/status.json";
  for (const bool starts : {true, false}) {
    test::writeFile(tool, starts ? "#!/bin/sh\n" : "#!/bin/sh\nexit 1\n");
    fs::permissions(tool, fs::perms::owner_all);
    long number = 0;
    do {
      fs::remove(failed);
      fs::remove_all(home / "apps");
      test::writeFile(target / "version", "old");
      test::writeFile(home / "apps/New.app/version", "new");
      test::writeFile(home / "plan.json", platform::JSONEncoder().encode(plan).bytes());
      ++number;
      const test::Outcome outcome = test::runProgram(
          updater, {"--plan", (home / "plan.json").native(), "--parent-pid", test::endedProcess()}, [&] {
            ::setenv("FAILING_ALLOCATION", std::to_string(number).c_str(), 1);
            ::setenv("ALLOCATION_FAILED", failed.c_str(), 1);
            // Where cleaning up fails for want of memory, what stays goes with this place.
            if (test::enterPrivateMounts())
              static_cast<void>(::mount("none", "/tmp", "tmpfs", 0, nullptr));
          });
      const std::string version = test::readFile(target / "version");
      EXPECT_TRUE(outcome.exitStatus == 0 || outcome.exitStatus == 1) << number << ", " << outcome.signal;
      EXPECT_TRUE(version == "new" || (version == "old" && outcome.exitStatus == 1)) << number;
    } while (fs::exists(failed));
    EXPECT_GT(number, 50);
  }
}

}  // namespace
