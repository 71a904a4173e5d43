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

}  // namespace
