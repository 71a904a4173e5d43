#include <unistd.h>

#include <cstdlib>

#include "tests/whole/whole_update.hpp"

namespace fs = std::filesystem;

namespace {

class CompleteUpdateTest : public test::WholeUpdateTest {
 protected:
  CompleteUpdateTest() { offer(sample("2.0")); }
};

TEST_F(CompleteUpdateTest, TheNewApplicationStandsAndRuns) {
  expectUpdated(run());
}

TEST_F(CompleteUpdateTest, NoConfigurationThatTheEnvironmentNamesIsRead) {
  // With this one, the library would know no digest.
  test::writeFile(home / "configuration",
                  "openssl_conf = a\n[a]\nproviders = b\n[b]\nbase = c\n[c]\nactivate = 1\n");
  expectUpdated(run([this] { ::setenv("OPENSSL_CONF", (home / "configuration").c_str(), 1); }));
}

TEST_F(CompleteUpdateTest, ARelativeTargetAndADigestInUpperCase) {
  for (char& digit : plan.expectedSHA256)
    digit = static_cast<char>(std::toupper(digit));
  plan.targetAppPath = target.lexically_relative(home.path());
  plan.dmgPath = image.filename();
  expectUpdated(run([this] {
    if (::chdir(home.path().c_str()) != 0)
      ::_exit(98);
  }));
}

TEST_F(CompleteUpdateTest, ATargetWithDotsAndASlashAtItsEnd) {
  fs::create_directories(home / "elsewhere/inner");
  fs::create_directory_symlink(home / "elsewhere/inner", home / "link");
  plan.targetAppPath = (home / "link/../..").native() + "//./" + applications.filename().native() + "/" +
                       target.filename().native() + "/";
  expectUpdated(run());
}

TEST_F(CompleteUpdateTest, ATargetThatIsALinkIsReplacedByTheApplicationItself) {
  const fs::path real = home / "real" / target.filename();
  fs::create_directory(home / "real");
  fs::rename(target, real);
  fs::create_directory_symlink(real, target);
  const auto before = test::inventory(real);
  expectUpdated(run());
  EXPECT_FALSE(fs::is_symlink(target));
  EXPECT_EQ(test::inventory(real), before);
}

TEST_F(CompleteUpdateTest, AnApplicationThatIsALinkInTheImageIsInstalledAsItself) {
  const fs::path elsewhere = home / "elsewhere" / target.filename();
  fs::create_directory(elsewhere.parent_path());
  test::copyTree(sample("2.0"), elsewhere);
  fs::create_directory(home / "links");
  fs::create_directory_symlink(elsewhere, home / "links" / target.filename());
  offer(home / "links" / target.filename());
  expectUpdated(run());
  EXPECT_FALSE(fs::is_symlink(target));
}

TEST_F(CompleteUpdateTest, WhereNamesCannotBeExchangedAnUpdateAndItsRollbackGoTheOtherWay) {
  expectUpdated(runMeddling({{"MEDDLER_KNOWS_NO_EXCHANGE", "yes"}}));
  installed = test::inventory(applications);
  offer(sample("broken"));
  const test::Outcome outcome = runMeddling({{"MEDDLER_KNOWS_NO_EXCHANGE", "yes"}});
  expectRefused(outcome, "The application could not be replaced: The application \"" + target.native() +
                             "\" cannot be opened: The interpreter that its executable names is missing.");
}

TEST_F(CompleteUpdateTest, AnImageThatCannotBeDetachedChangesNothing) {
  wrapTool("hdiutil", "[ \"$1\" = detach ] && exit 1\nexec \"$0.real\" \"$@\"\n");
  const test::Outcome outcome = run();
  EXPECT_EQ(outcome.exitStatus, 0) << outcome.error;
  expectStands("2.0");
}

}  // namespace
