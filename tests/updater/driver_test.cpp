#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <stdexcept>
#include <thread>

#include "tests/helpers/files.hpp"
#include "tests/helpers/program.hpp"
#include "tests/helpers/syscall_fault.hpp"
#include "updater/driver/arguments.hpp"
#include "updater/driver/failure_description.hpp"
#include "updater/driver/parent_process.hpp"
#include "updater/driver/status_file.hpp"
#include "updater/records/installer_error.hpp"

using QuorinOstrevalUpdater::Arguments;
using QuorinOstrevalUpdater::InstallerError;
using QuorinOstrevalUpdater::InstallStatus;
using QuorinOstrevalUpdater::parseArguments;
using QuorinOstrevalUpdater::writeStatus;

namespace fs = std::filesystem;

namespace {

/// "plan pid ready" of a command line, or "rejected".
std::string parsed(std::vector<std::string> words) {
  words.insert(words.begin(), "updater");
  try {
    const Arguments arguments = parseArguments(words);
    return arguments.planURL.path() + " " + std::to_string(arguments.parentPID) + " " +
           (arguments.readyURL ? arguments.readyURL->path() : "none");
  } catch (const InstallerError&) {
    return "rejected";
  }
}

TEST(ArgumentsTest, CommandLines) {
  struct Case {
    std::vector<std::string> words;
    std::string result;
  };
  const Case cases[] = {
      {{}, "rejected"},
      {{"--plan", "/p"}, "rejected"},
      {{"--parent-pid", "7", "--plan"}, "rejected"},
      {{"--plan", "/p", "--parent-pid"}, "rejected"},
      {{"--ready-file", "/r", "--parent-pid", "7", "--plan", "/p"}, "/p 7 /r"},
      {{"--plan", "/p", "--parent-pid", "7", "--ready-file"}, "/p 7 none"},
      {{"x", "--plan", "/p", "-v", "--parent-pid", "7", "--help", "y"}, "/p 7 none"},
      {{"--plan", "/p", "--plan", "/q", "--parent-pid", "7", "--parent-pid", "x"}, "/p 7 none"},
      {{"--plan=/p", "--parent-pid", "7"}, "rejected"},
  };
  for (const Case& each : cases)
    EXPECT_EQ(parsed(each.words), each.result) << testing::PrintToString(each.words);
}

TEST(ArgumentsTest, ParentIdentifiers) {
  for (const char* accepted : {"2", "+7", "007", "2147483647"})
    EXPECT_EQ(parsed({"--plan", "/p", "--parent-pid", accepted}),
              "/p " + std::to_string(std::stoi(accepted)) + " none");
  for (const char* rejected : {"1", "0", "-7", "2147483648", "99999999999999999999", "", "+", " 7", "7 ",
                               "7x", "+-7", "0x7", "7.0", "\xD9\xA7"})
    EXPECT_EQ(parsed({"--plan", "/p", "--parent-pid", rejected}), "rejected") << '"' << rejected << '"';
}

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

TEST(ParentProcessTest, AProcessOfAnotherUserIsAlive) {
  if (::getuid() != 0)
    GTEST_SKIP() << "only the superuser can become another user";
  const test::TemporaryDirectory directory;
  fs::permissions(directory.path(), fs::perms(0755));
  const pid_t child = ::fork();
  if (child == 0) {
    ::sleep(1);
    test::writeFile(directory / "ended", "");
    ::_exit(0);
  }
  const std::jthread collector([child] { ::waitpid(child, nullptr, 0); });
  EXPECT_EQ(test::inChild([&] {
              if (::setuid(65534) != 0)
                return 2;
              QuorinOstrevalUpdater::waitForExit(child);
              return fs::exists(directory / "ended") ? 0 : 1;
            }),
            0);
}

const InstallStatus kStatus{.succeeded = true, .message = "It \"works\" \xC3\xA9.", .version = "2.0"};

TEST(StatusFileTest, FailuresStaySilentAndHarmless) {
  const test::TemporaryDirectory directory;
  test::writeFile(directory / "file", "kept");
  const auto before = test::inventory(directory.path());
  for (const std::string& path :
       {(directory / "file/status.json").native(), directory.path().native(), std::string(),
        std::string("/proc/none/status.json"), std::string("/tmp/a\0b", 8)})
    writeStatus(kStatus, path);
  EXPECT_EQ(test::inventory(directory.path()), before);
}

TEST(StatusFileTest, AStatusThatCannotBeWrittenLeavesNoneOfAnEarlierUpdate) {
  const test::TemporaryDirectory directory;
  const std::string path = (directory / "status.json").native();
  const InstallStatus older{.succeeded = true, .message = "It works.", .version = "1.0"};
  for (const InstallStatus& existing : {older, kStatus}) {
    writeStatus(existing, path);
    EXPECT_EQ(test::inChild([&] {
                return test::inject({SYS_fsync, EIO}) ? (writeStatus(kStatus, path), 0) : 1;
              }),
              0);
    EXPECT_EQ(fs::exists(path), existing == kStatus) << existing.version;
  }
}

}  // namespace
