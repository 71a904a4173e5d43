#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>
#include <set>
#include <sstream>
#include <thread>

#include "tests/whole/whole_update.hpp"

namespace fs = std::filesystem;

namespace {

class CompleteUpdateTest : public test::WholeUpdateTest {
 protected:
  CompleteUpdateTest() { offer(sample("2.0")); }
};

TEST_F(CompleteUpdateTest, TheNewApplicationStandsAndRuns) {
  // An icon that the user gave the installed application.
  test::writeFile(target / "Icon\r", "");
  // The image is detached by its device: others may mount something at its mount point.
  wrapTool("hdiutil", "case $1$2 in detach/tmp/*) exit 1; esac\nexec \"$0.real\" \"$@\"\n");
  expectUpdated(run());
}

/// The libraries' own configuration files, debugging output and choice of instructions are such variables.
TEST_F(CompleteUpdateTest, NoVariableIsReadAndAllArePassedOn) {
  // The build tree may be below "/tmp", which is hidden from the updater, or have a blank in its path.
  const fs::path recorder = home / "librecorder.so";
  fs::copy_file(test::buildPrefix() / "tests/libenvironment_recorder.so", recorder);
  std::set<std::string> variables;
  const auto recorded = [&] {
    const auto outcome = run([&] {
      ::clearenv();
      for (const std::string& name : variables)
        ::setenv(name.c_str(), "1", 1);
      ::setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
      ::setenv("LD_PRELOAD", recorder.c_str(), 1);
    });
    EXPECT_EQ(starts(1), std::vector<std::string>{"2.0"});
    std::istringstream lines;
    if (!fs::exists(temporary / "environment"))
      return lines;
    lines.str(test::readFile(temporary / "environment"));
    fs::remove(temporary / "environment");
    expectUpdated(outcome);
    return lines;
  };
  // By the runtime of a build that counts lines, in its own process.
  const std::string kSetByCounters = "__LLVM_PROFILE_RT_INIT_ONCE";
  const std::set<std::string> ours{"QuorinOstrevalUpdater", "hdiutil", "ditto", "open"};
  std::string program;
  std::string verb;
  std::string object;
  for (auto lines = recorded(); lines >> program >> verb >> object;)
    if (ours.contains(program) && verb == "asks")
      variables.insert(object);
  EXPECT_TRUE(variables.contains("OPENSSL_ia32cap") && variables.contains("EXPAT_ENTROPY_DEBUG"));
  fs::remove(home / "starts");
  offer(sample("2.0"));
  std::set<std::string> seen;
  for (auto lines = recorded(); lines >> program >> verb >> object;) {
    if (!ours.contains(program)) {
      EXPECT_TRUE(verb != "has" || std::stoul(object) >= variables.size() + 2)
          << program << " has " << object;
      seen.insert(verb == "has" ? "the application" : "");
    } else {
      EXPECT_TRUE(verb == "asks" || (verb == "has" && object == "0") || object == kSetByCounters)
          << program << ' ' << verb << ' ' << object;
      seen.insert(program);
    }
  }
  EXPECT_THAT(seen, testing::IsSupersetOf(ours));
  EXPECT_TRUE(seen.contains("the application"));
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

TEST_F(CompleteUpdateTest, AnImageThatCannotBeDetachedChangesNothing) {
  wrapTool("hdiutil", "[ \"$1\" = detach ] && exit 1\nexec \"$0.real\" \"$@\"\n");
  const test::Outcome outcome = run();
  EXPECT_EQ(outcome.exitStatus, 0) << outcome.error;
  expectStands("2.0");
}

TEST_F(CompleteUpdateTest, TwoUpdatersAtOnceLeaveOneWholeApplication) {
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

TEST_F(CompleteUpdateTest, AnApplicationThatIsStartedInTheMiddleIsReplacedAllTheSame) {
  wrapTool("ditto", "\"${0%/*}/open\" -n '" + target.native() + "'\nexec \"$0.real\" \"$@\"\n");
  const auto outcome = run();
  EXPECT_EQ(outcome.exitStatus, 0) << outcome.error;
  EXPECT_EQ(starts(2), (std::vector<std::string>{"1.0", "2.0"}));
  expectStands("2.0");
}

}  // namespace
