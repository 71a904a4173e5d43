#include "updater/install/rollback.hpp"

#include <gtest/gtest.h>

#include "tests/support/files.hpp"
#include "tests/support/program.hpp"
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

TEST_F(RollbackTest, ATargetThatEndsInDotsIsTheApplicationAndNothingElse) {
  for (const char* path : {"Target.app/.", "Target.app/Contents/.."}) {
    test::writeFile(directory / "Target.app/Contents/version", "new");
    test::writeFile(directory / ".backup.app/version", "old");
    test::writeFile(directory / "neighbour", "");
    rollback(platform::URL::fileURLWithPath((directory / path).native()), backup);
    EXPECT_EQ(test::difference({{"Target.app", "directory 755"},
                                {"Target.app/version", "file 644 old"},
                                {"neighbour", "file 644 "}},
                               test::inventory(directory.path())),
              "")
        << path;
    fs::remove_all(directory / "Target.app");
  }
}

TEST_F(RollbackTest, AFailedMoveKeepsTheBackup) {
  // Another file system: the way back cannot be one rename.
  const fs::path elsewhere = "/dev/shm/quorin-rollback-test.app";
  if (!fs::exists("/dev/shm"))
    GTEST_SKIP() << "there is no second file system to write to";
  test::writeFile(elsewhere / "version", "old");
  try {
    rollback(target, platform::URL::fileURLWithPath(elsewhere.native()));
    ADD_FAILURE();
  } catch (const QuorinOstrevalUpdater::InstallerError& error) {
    EXPECT_EQ(error.errorDescription(),
              "The application could not be replaced: The new app did not launch and restoring the previous "
              "app failed: \"" +
                  elsewhere.native() + "\" could not be moved to \"" + target.path() +
                  "\": Invalid cross-device link.");
  }
  EXPECT_EQ(test::readFile(elsewhere / "version"), "old");
  fs::remove_all(elsewhere);
}

}  // namespace
