#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <thread>

#include "platform/foundation/data.hpp"
#include "platform/foundation/json.hpp"
#include "tests/support/files.hpp"
#include "tests/support/program.hpp"
#include "updater/records/install_plan.hpp"
#include "updater/records/install_status.hpp"

namespace fs = std::filesystem;
using QuorinOstrevalUpdater::InstallPlan;
using QuorinOstrevalUpdater::InstallStatus;
using test::endedProcess;
using test::Outcome;
using test::readFile;
using test::writeFile;

namespace {

/// A prefix of the test's own: the real driver, and an `open` that notes its arguments and ends as
/// prescribed. Beside it an installed application, a new one, a disk image and a plan.
class UpdateRunTest : public testing::Test {
 protected:
  UpdateRunTest() {
    writeFile(directory / "prefix/libexec/quorin/open",
              "#!/bin/sh\n"
              "cd \"${0%/*}\" || exit 99\n"
              "echo \"$# $1 $2\" >> calls\n"
              "cat ../../../state/status.json >> statuses 2>/dev/null && echo >> statuses\n"
              "stat -L -c %s /proc/$PPID/fd/2 >> lines\n"
              "read -r status message < results; sed -i 1d results\n"
              "printf '%s\\n' \"$message\" >&2\n"
              "exit \"${status:-0}\"\n");
    fs::permissions(open / "open", fs::perms::owner_all);
    writeFile(open / "results", "");
    writeFile(apps / "Quorin Ostreval.app/version", "old");
    writeFile(apps / "New.app/version", "new");
    writeFile(directory / "image.dmg", "image");
    use("tests/scripted_updater");
  }

  void use(const char* program) const {
    fs::create_directories(updater.parent_path());
    fs::copy_file(test::buildPrefix() / program, updater, fs::copy_options::overwrite_existing);
  }

  /// Each line of `results` is for one call of `open`: a status and a message.
  Outcome run(const std::string& script, const std::string& results = "",
              const std::function<void()>& prepare = {}) {
    plan.expectedTeamIdentifier = script;
    writeFile(directory / "plan.json", platform::JSONEncoder().encode(plan).bytes());
    writeFile(open / "results", results);
    return runWith({"--plan", (directory / "plan.json").native(), "--parent-pid", endedProcess(),
                    "--ready-file", ready.native()},
                   prepare);
  }

  Outcome runWith(const std::vector<std::string>& arguments,
                  const std::function<void()>& prepare = {}) const {
    return test::runProgram(updater, arguments, prepare);
  }

  /// The outcomes that the status file told at each call of `open`, in order; standard error was silent then.
  std::string outcomesAtLaunches() const {
    std::istringstream lines(readFile(open / "lines"));
    for (std::string size; std::getline(lines, size);)
      EXPECT_EQ(size, "0") << "the line on standard error comes after the relaunch";
    std::istringstream statuses(readFile(open / "statuses"));
    std::string outcomes;
    for (std::string text; std::getline(statuses, text);)
      outcomes +=
          platform::JSONDecoder().decode<InstallStatus>(platform::Data(text)).succeeded ? "good " : "bad ";
    return outcomes;
  }

  InstallStatus status() const {
    return platform::JSONDecoder().decode<InstallStatus>(platform::Data(readFile(plan.statusPath)));
  }

  std::size_t launches() const {
    if (!fs::exists(open / "calls"))
      return 0;
    std::istringstream calls(readFile(open / "calls"));
    std::size_t count = 0;
    for (std::string call; std::getline(calls, call); ++count)
      EXPECT_EQ(call, "2 -n " + plan.targetAppPath);
    return count;
  }

  std::string installedVersion() const { return readFile(fs::path(plan.targetAppPath) / "version"); }

  void expectEarlyEnd(const Outcome& outcome, const std::string& description) const {
    EXPECT_EQ(outcome.exitStatus, 1);
    EXPECT_EQ(outcome.error, "QuorinOstrevalUpdater: " + description + "\n");
    EXPECT_EQ(outcome.output, "");
    EXPECT_FALSE(fs::exists(plan.statusPath));
    EXPECT_FALSE(fs::exists(ready));
    EXPECT_EQ(launches(), 0U);
  }

  void expectFailure(const Outcome& outcome, const std::string& description,
                     std::size_t expectedLaunches) const {
    EXPECT_EQ(outcome.exitStatus, 1) << outcome.signal;
    EXPECT_EQ(outcome.error, "QuorinOstrevalUpdater: " + description + "\n");
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(status(), (InstallStatus{false, "Quorin Ostreval update failed: " + description, "2.0"}));
    EXPECT_EQ(launches(), expectedLaunches);
    EXPECT_TRUE(fs::exists(plan.dmgPath) && fs::exists(directory / "plan.json"));
  }

  test::TemporaryDirectory directory;
  fs::path updater = directory / "prefix/bin/QuorinOstrevalUpdater";
  fs::path open = directory / "prefix/libexec/quorin";
  fs::path apps = directory / "Applications";
  fs::path ready = directory / "ready";
  std::string backup = (apps / ".backup.app").native();
  InstallPlan plan{.dmgPath = (directory / "image.dmg").native(),
                   .targetAppPath = (apps / "Quorin Ostreval.app").native(),
                   .expectedBundleIdentifier = "com.example.quorin",
                   .expectedTeamIdentifier = "",
                   .expectedVersion = "2.0",
                   .expectedBuild = "200",
                   .expectedSHA256 = "",
                   .statusPath = (directory / "state/status.json").native()};
};

TEST_F(UpdateRunTest, RejectedCommandLine) {
  use("bin/QuorinOstrevalUpdater");
  expectEarlyEnd(runWith({}), "The updater received invalid arguments.");
  expectEarlyEnd(runWith({"--plan", "/p", "--ready-file", ready.native()}),
                 "The updater received invalid arguments.");
}

TEST_F(UpdateRunTest, UnusablePlan) {
  use("bin/QuorinOstrevalUpdater");
  const std::string path = (directory / "plan.json").native();
  const auto runPlan = [&] {
    return runWith({"--plan", path, "--parent-pid", endedProcess(), "--ready-file", ready.native()});
  };
  expectEarlyEnd(runPlan(), "\"" + path + "\" could not be opened: No such file or directory.");
  writeFile(path, "{\"dmgPath\": \"x\"}");
  expectEarlyEnd(runPlan(), "The JSON value for the key \"targetAppPath\" is missing.");
  writeFile(path, std::string(5'000'000, '['));
  expectEarlyEnd(runPlan(), "The data is not valid JSON at line 1, column 5000001.");
}

TEST_F(UpdateRunTest, AReadyFileThatCannotBeWritten) {
  use("bin/QuorinOstrevalUpdater");
  ready = directory / "missing/ready";
  expectFailure(run("refuse"),
                "\"" + ready.parent_path().native() + "\" could not be opened: No such file or directory.",
                1);
}

TEST_F(UpdateRunTest, AParentThatOutlivesTheTimeLimit) {
  use("bin/QuorinOstrevalUpdater");
  writeFile(directory / "plan.json", platform::JSONEncoder().encode(plan).bytes());
  const auto before = test::inventory(apps);
  const auto start = std::chrono::steady_clock::now();
  expectFailure(runWith({"--plan", (directory / "plan.json").native(), "--parent-pid",
                         std::to_string(::getpid()), "--ready-file", ready.native()}),
                "Quorin Ostreval did not terminate in time.", 1);
  EXPECT_EQ(readFile(ready), "ready");
  EXPECT_EQ(test::inventory(apps), before);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
  EXPECT_LE(std::chrono::steady_clock::now() - start, std::chrono::seconds(75));
}

TEST_F(UpdateRunTest, AFailedInstallation) {
  expectFailure(run("refuse"), "The downloaded DMG no longer matches its verified SHA-256 checksum.", 1);
  expectFailure(run("refuse", "1 ignored"),
                "The downloaded DMG no longer matches its verified SHA-256 checksum.", 2);
  EXPECT_EQ(outcomesAtLaunches(), "bad bad ");
  EXPECT_EQ(readFile(ready), "ready");
  EXPECT_EQ(installedVersion(), "old");
}

TEST_F(UpdateRunTest, WhateverIsThrownEndsInTheFailurePath) {
  expectFailure(run("no memory"), "There is not enough memory.", 1);
  expectFailure(run("too long"), "too long", 2);
  expectFailure(run("unknown"), "An unexpected error occurred.", 3);
}

TEST_F(UpdateRunTest, WhicheverAllocationFailsTheRunEndsByItselfWithAWholeApplication) {
  const fs::path failed = directory / "failed";
  long number = 0;
  do {
    fs::remove(failed);
    fs::remove_all(apps);
    writeFile(fs::path(plan.targetAppPath) / "version", "old");
    writeFile(apps / "New.app/version", "new");
    writeFile(plan.dmgPath, "image");
    ++number;
    const Outcome outcome = run(backup, "", [&] {
      ::setenv("FAILING_ALLOCATION", std::to_string(number).c_str(), 1);
      ::setenv("ALLOCATION_FAILED", failed.c_str(), 1);
    });
    EXPECT_TRUE(outcome.exitStatus == 0 || outcome.exitStatus == 1) << number << " signal " << outcome.signal;
    const bool isNew = fs::exists(fs::path(plan.targetAppPath) / "version") && installedVersion() == "new";
    EXPECT_TRUE(isNew || (outcome.exitStatus == 1 && (installedVersion() == "old"))) << number;
  } while (fs::exists(failed));
  EXPECT_GT(number, 50);
}

TEST_F(UpdateRunTest, AFailedLaunchBringsThePreviousApplicationBack) {
  expectFailure(run(backup, "5   it says so  \n0\n"), "The application could not be replaced: it says so", 2);
  EXPECT_EQ(outcomesAtLaunches(), "good bad ");
  EXPECT_EQ(installedVersion(), "old");
  EXPECT_FALSE(fs::exists(backup));
  writeFile(apps / "New.app/version", "new");
  expectFailure(run(backup, "1\n1\n"),
                "The application could not be replaced: Could not relaunch Quorin Ostreval.", 4);
  EXPECT_EQ(installedVersion(), "old");
}

TEST_F(UpdateRunTest, AFailedRollbackIsReportedInsteadOfTheLaunch) {
  backup = "/dev/shm/quorin-update-run-test.app";
  if (!fs::exists("/dev/shm"))
    GTEST_SKIP() << "there is no second file system to write to";
  writeFile(fs::path(backup) / "version", "old");
  fs::remove_all(plan.targetAppPath);
  const std::string description =
      "The application could not be replaced: The new app did not launch and restoring the previous app "
      "failed: \"" +
      backup + "\" could not be moved to \"" + plan.targetAppPath + "\": Invalid cross-device link.";
  expectFailure(run(backup, "1\n0\n"), description, 2);
  EXPECT_EQ(readFile(fs::path(backup) / "version"), "old");
  fs::remove_all(backup);
}

TEST_F(UpdateRunTest, ASuccessfulRun) {
  const Outcome outcome = run(backup);
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.output + outcome.error, "");
  EXPECT_EQ(
      status(),
      (InstallStatus{true, "Quorin Ostreval was updated successfully to version 2.0 (build 200).", "2.0"}));
  EXPECT_EQ(outcomesAtLaunches(), "good ");
  EXPECT_EQ(launches(), 1U);
  EXPECT_EQ(installedVersion(), "new");
  EXPECT_EQ(readFile(ready), "ready");
  EXPECT_FALSE(fs::exists(backup) || fs::exists(plan.dmgPath) || fs::exists(directory / "plan.json"));
}

TEST_F(UpdateRunTest, WhatIsBestEffortChangesNoOutcome) {
  writeFile(directory / "state", "in the way of the status file");
  fs::remove(plan.dmgPath);
  EXPECT_EQ(run(backup).exitStatus, 0);
  EXPECT_EQ(installedVersion(), "new");
  EXPECT_FALSE(fs::exists(directory / "plan.json"));
}

TEST_F(UpdateRunTest, LeadsASessionOfItsOwn) {
  writeFile(
      open / "open",
      "#!/bin/sh\nps -o sid= -o pgid= -p $PPID > \"${0%/*}/session\"; echo $PPID >> \"${0%/*}/session\"\n");
  EXPECT_EQ(run(backup).exitStatus, 0);
  std::istringstream session(readFile(open / "session"));
  std::string sessionLeader;
  std::string groupLeader;
  std::string process;
  session >> sessionLeader >> groupLeader >> process;
  EXPECT_EQ(sessionLeader, process);
  EXPECT_EQ(groupLeader, process);
}

TEST_F(UpdateRunTest, TheExitStatusDoesNotDependOnStandardError) {
  const auto closed = [] { ::close(STDERR_FILENO); };
  const auto readerGone = [] {
    int ends[2];
    if (::pipe(ends) == 0 && ::dup2(ends[1], STDERR_FILENO) == STDERR_FILENO) {
      ::close(ends[0]);
      ::close(ends[1]);
    }
  };
  const auto full = [] { ::dup2(::open("/dev/full", O_WRONLY), STDERR_FILENO); };
  std::size_t count = 0;
  for (const std::function<void()>& prepare : {std::function<void()>(closed), {readerGone}, {full}}) {
    const Outcome outcome = run("refuse", "", prepare);
    EXPECT_EQ(outcome.exitStatus, 1) << outcome.signal;
    EXPECT_EQ(launches(), ++count);
    EXPECT_FALSE(status().succeeded);
  }
}

TEST_F(UpdateRunTest, TheWholeLineReachesStandardError) {
  writeFile(open / "open", "#!/bin/sh\nprintf 'first\\0second' >&2\nexit 1\n");
  EXPECT_THAT(run(backup).error, testing::EndsWith(std::string("replaced: first\0second\n", 23)));
}

TEST_F(UpdateRunTest, NothingTakesThePlaceOfAClosedStream) {
  // A capture file with the number of a stream would be lost on the way into the tool.
  const Outcome outcome = run(backup, "1 the tool's message\n", [] {
    for (const int stream : {0, 1, 2})
      ::close(stream);
  });
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_EQ(readFile(ready), "ready");
  EXPECT_EQ(launches(), 2U);
  EXPECT_EQ(status().message,
            "Quorin Ostreval update failed: The application could not be replaced: the tool's message");
}

TEST_F(UpdateRunTest, SignalsThatTheApplicationIgnoredOrBlockedChangeNothing) {
  EXPECT_EQ(run(backup, "",
                [] {
                  ::signal(SIGCHLD, SIG_IGN);
                  sigset_t all;
                  ::sigfillset(&all);
                  ::sigprocmask(SIG_BLOCK, &all, nullptr);
                })
                .exitStatus,
            0);
  EXPECT_EQ(installedVersion(), "new");
}

TEST_F(UpdateRunTest, APlanThatDoesNotFitIntoMemory) {
  if (::dlsym(RTLD_DEFAULT, "__asan_init") != nullptr)
    GTEST_SKIP() << "the sanitizer needs the address space itself";
  writeFile(directory / "plan.json", "{\"dmgPath\": \"" + std::string(200'000'000, 'x') + "\"}");
  expectEarlyEnd(runWith({"--plan", (directory / "plan.json").native(), "--parent-pid", endedProcess()},
                         [] {
                           const rlimit limit{100'000'000, 100'000'000};
                           ::setrlimit(RLIMIT_AS, &limit);
                         }),
                 "There is not enough memory.");
}

}  // namespace
