#include "updater/install/rollback.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstdio>
#include <set>

#include "tests/helpers/files.hpp"
#include "tests/helpers/program.hpp"
#include "tests/helpers/rename_fates.hpp"
#include "tests/helpers/syscall_fault.hpp"
#include "updater/records/installer_error.hpp"

namespace fs = std::filesystem;
using QuorinOstrevalUpdater::rollback;

namespace {

class RollbackTest : public testing::Test {
 protected:
  RollbackTest() { test::writeFile(directory / "Target.app/version", "new"); }

  test::TemporaryDirectory directory;
  platform::URL target = platform::URL::fileURLWithPath((directory / "Target.app").native());
  platform::URL backup = platform::URL::fileURLWithPath((directory / ".quorin-backup-1.app").native());
};

TEST_F(RollbackTest, WithoutABackupNothingIsTouched) {
  const auto before = test::inventory(directory.path());
  rollback(target, std::nullopt);
  rollback(target, backup);
  // The target itself, under names that lead to it.
  fs::create_directory_symlink(directory.path(), directory / "link");
  fs::create_directory_symlink("Target.app", directory / "Link.app");
  for (const char* name : {"Target.app", "link/Target.app", "link/.//Target.app/", "Link.app"})
    rollback(target, platform::URL::fileURLWithPath((directory / name).native()));
  fs::remove(directory / "link");
  fs::remove(directory / "Link.app");
  EXPECT_EQ(test::inventory(directory.path()), before);
}

TEST_F(RollbackTest, ThePreviousApplicationComesBack) {
  for (const bool targetIsThere : {true, false}) {
    test::writeFile(directory / ".quorin-backup-1.app/version", "old");
    if (!targetIsThere)
      fs::remove_all(directory / "Target.app");
    rollback(target, backup);
    EXPECT_EQ(test::readFile(directory / "Target.app/version"), "old");
    EXPECT_FALSE(fs::exists(directory / ".quorin-backup-1.app"));
  }
}

TEST_F(RollbackTest, WhateverTheFileSystemReportsThePreviousApplicationIsThereUnderAKnownName) {
  const std::set<std::string> known{"Target.app", ".quorin-backup-1.app", ".quorin-update-1.app"};
  for (unsigned sequence = 0; sequence < 4 * 4 * 4 * 4 * 4; ++sequence) {
    for (const std::string& name : known)
      fs::remove_all(directory / name);
    test::writeFile(directory / "Target.app/version", "new");
    test::writeFile(directory / ".quorin-backup-1.app/version", "old");
    test::renameFates = sequence;
    bool isBack = true;
    try {
      rollback(target, backup);
    } catch (const QuorinOstrevalUpdater::InstallerError&) {
      isBack = false;
    }
    test::renameFates = 0;
    std::set<std::string> places;
    for (const auto& entry : fs::directory_iterator(directory.path())) {
      EXPECT_TRUE(known.contains(entry.path().filename())) << sequence << ": " << entry.path();
      if (fs::exists(entry.path() / "version") && test::readFile(entry.path() / "version") == "old")
        places.insert(entry.path().filename());
    }
    EXPECT_EQ(places.size(), 1U) << sequence;
    EXPECT_EQ(places.contains("Target.app"), isBack) << sequence;
    const bool isFifthMade = sequence / (4 * 4 * 4 * 4) == 0;
    EXPECT_TRUE(fs::exists(directory / "Target.app/version") || !isFifthMade) << sequence;
  }
}

TEST_F(RollbackTest, WhatCannotOrMustNotBeRemovedStaysUnderTheBackupsName) {
  using Fault = test::SyscallFault;
  const Fault exchange{SYS_renameat2, EINVAL, Fault::Argument{4, RENAME_EXCHANGE}};
  const Fault hold{SYS_openat, EACCES, Fault::Argument{2, O_PATH | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC}};
  // Without a hold on the previous application, it is not known to be back.
  for (const auto& [first, second] : {std::pair(exchange, Fault{SYS_unlinkat, EIO}), {hold, hold}}) {
    test::writeFile(directory / "Target.app/version", "new");
    test::writeFile(directory / ".quorin-backup-1.app/version", "old");
    EXPECT_EQ(test::inChild([&, &one = first, &other = second] {
                if (!test::inject(one) || !test::inject(other))
                  return 1;
                rollback(target, backup);
                return 0;
              }),
              0);
    EXPECT_EQ(test::readFile(directory / "Target.app/version"), "old");
    EXPECT_EQ(test::readFile(directory / ".quorin-backup-1.app/version"), "new");
  }
}

}  // namespace
