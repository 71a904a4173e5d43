#include "updater/install/rollback.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <cstdio>

#include "tests/support/files.hpp"
#include "tests/support/program.hpp"
#include "tests/support/syscall_fault.hpp"
#include "updater/records/installer_error.hpp"

namespace fs = std::filesystem;
using QuorinOstrevalUpdater::rollback;

namespace {

class RollbackTest : public testing::Test {
 protected:
  RollbackTest() { test::writeFile(directory / "Target.app/version", "new"); }

  test::TemporaryDirectory directory;
  platform::URL target = platform::URL::fileURLWithPath((directory / "Target.app").native());
  platform::URL backup = platform::URL::fileURLWithPath((directory / ".backup.app").native());
};

TEST_F(RollbackTest, WithoutABackupNothingIsTouched) {
  const auto before = test::inventory(directory.path());
  rollback(target, std::nullopt);
  rollback(target, backup);
  EXPECT_EQ(test::inventory(directory.path()), before);
}

TEST_F(RollbackTest, ThePreviousApplicationComesBack) {
  for (const bool targetIsThere : {true, false}) {
    test::writeFile(directory / ".backup.app/version", "old");
    if (!targetIsThere)
      fs::remove_all(directory / "Target.app");
    rollback(target, backup);
    EXPECT_EQ(test::readFile(directory / "Target.app/version"), "old");
    EXPECT_FALSE(fs::exists(directory / ".backup.app"));
  }
}

TEST_F(RollbackTest, WhateverFailsThePreviousApplicationIsNotLost) {
  const test::SyscallFault exchange{SYS_renameat2, EINVAL, test::SyscallFault::Argument{4, RENAME_EXCHANGE}};
  const test::SyscallFault renames{SYS_renameat2, EIO};
  const test::SyscallFault sync{SYS_fsync, EIO};
  using Faults = std::vector<test::SyscallFault>;
  for (const auto& [given, comesBack] :
       {std::pair(Faults{exchange}, true), {{sync}, true}, {{exchange, sync}, true}, {{renames}, false}}) {
    fs::remove_all(directory / "Target.app");
    test::writeFile(directory / "Target.app/version", "new");
    test::writeFile(directory / ".backup.app/version", "old");
    const int result = test::inChild([&, &faults = given] {
      for (const test::SyscallFault& fault : faults)
        if (!test::inject(fault))
          return 2;
      try {
        rollback(target, backup);
        return 0;
      } catch (const QuorinOstrevalUpdater::InstallerError&) {
        return 1;
      }
    });
    EXPECT_EQ(result, comesBack ? 0 : 1);
    EXPECT_EQ(test::readFile(directory / "Target.app/version"), comesBack ? "old" : "new");
    EXPECT_EQ(std::distance(fs::directory_iterator(directory.path()), {}), comesBack ? 1 : 2);
    if (!comesBack) {
      EXPECT_EQ(test::readFile(directory / ".backup.app/version"), "old");
    }
  }
}

}  // namespace
