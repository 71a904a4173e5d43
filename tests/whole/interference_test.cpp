#include <unistd.h>

#include <atomic>
#include <thread>

#include "tests/whole/whole_update.hpp"
#include "updater/install/bundle_metadata.hpp"

namespace fs = std::filesystem;
using test::SampleUpdates;

namespace {

/// What goes on beside an update.
class InterferenceTest : public test::WholeUpdateTest {
 protected:
  InterferenceTest() { offer(SampleUpdates::shared().application("2.0")); }
};

TEST_F(InterferenceTest, AnApplicationStandsAtTheTargetAtEveryInstant) {
  for (const bool starts : {false, true}) {
    const SampleUpdates& samples = SampleUpdates::shared();
    offer(starts ? samples.application("2.0") : samples.brokenApplication());
    std::atomic<bool> ended = false;
    std::size_t looks = 0;
    std::size_t missing = 0;
    std::jthread watcher([&] {
      while (!ended) {
        std::error_code error;
        missing += fs::exists(target / "Contents/Info.plist", error) ? 0U : 1U;
        ++looks;
      }
    });
    const auto outcome = run();
    ended = true;
    watcher.join();
    EXPECT_EQ(outcome.exitStatus, starts ? 0 : 1) << outcome.error;
    EXPECT_EQ(missing, 0U);
    EXPECT_GT(looks, 1000U);
  }
}

TEST_F(InterferenceTest, AClockThatIsSetWhileItWaitsChangesNothing) {
  for (const char* jump : {"3600", "-3600"}) {
    offer(SampleUpdates::shared().application("2.0"));
    const auto outcome = run([jump] {
      ::setenv("LD_PRELOAD", (test::buildPrefix() / "tests/libmeddler.so").c_str(), 1);
      ::setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
      ::setenv("MEDDLER_SETS_CLOCK", jump, 1);
    });
    EXPECT_EQ(outcome.exitStatus, 0) << outcome.error;
  }
}

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
  EXPECT_EQ(
      test::difference(test::inventory(SampleUpdates::shared().application("2.0")), test::inventory(target)),
      "");
  expectNothingLeft();
}

TEST_F(InterferenceTest, AnApplicationThatIsStartedInTheMiddleIsReplacedAllTheSame) {
  wrapTool("ditto", "\"${0%/*}/open\" -n '" + target.native() + "'\nexec \"$0.real\" \"$@\"\n");
  const auto outcome = run();
  EXPECT_EQ(outcome.exitStatus, 0) << outcome.error;
  EXPECT_EQ(starts(2), (std::vector<std::string>{"1.0", "2.0"}));
  EXPECT_EQ(
      test::difference(test::inventory(SampleUpdates::shared().application("2.0")), test::inventory(target)),
      "");
}

}  // namespace
