#include <thread>

#include "tests/whole/whole_update.hpp"

namespace fs = std::filesystem;

namespace {

/// What goes on beside an update.
class InterferenceTest : public test::WholeUpdateTest {
 protected:
  InterferenceTest() { offer(sample("2.0")); }
};

TEST_F(InterferenceTest, TwoUpdatersAtOnceLeaveOneWholeApplication) {
  const fs::path secondImage = home / "second.dmg";
  fs::copy_file(image, secondImage);
  auto secondPlan = plan;
  secondPlan.dmgPath = secondImage.native();
  secondPlan.statusPath = (home / "second-status.json").native();
  test::writeFile(home / "second-plan.json", platform::JSONEncoder().encode(secondPlan).bytes());
  std::jthread second([&] {
    const auto outcome =
        test::runProgram(home / "prefix/bin/QuorinOstrevalUpdater",
                         {"--plan", (home / "second-plan.json").native(), "--parent-pid", "2147483647"});
    EXPECT_TRUE(outcome.exitStatus == 0 || outcome.exitStatus == 1);
  });
  const auto outcome = run();
  second.join();
  EXPECT_TRUE(outcome.exitStatus == 0 || outcome.exitStatus == 1) << outcome.error;
  expectStands("2.0");
  expectNothingLeft();
}

TEST_F(InterferenceTest, AnApplicationThatIsStartedInTheMiddleIsReplacedAllTheSame) {
  wrapTool("ditto", "\"${0%/*}/open\" -n '" + target.native() + "'\nexec \"$0.real\" \"$@\"\n");
  const auto outcome = run();
  EXPECT_EQ(outcome.exitStatus, 0) << outcome.error;
  EXPECT_EQ(starts(2), (std::vector<std::string>{"1.0", "2.0"}));
  expectStands("2.0");
}

}  // namespace
