#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <csignal>

#include "tests/whole/whole_update.hpp"

namespace fs = std::filesystem;
using test::Outcome;
using test::writeFile;

namespace {

/// What the application and the user notice of the updater itself, apart from the installation.
class ExitBehaviourTest : public test::WholeUpdateTest {
 protected:
  ExitBehaviourTest() { offer(sample("2.0")); }

  const std::string notReplaced = "The application could not be replaced: ";
};

TEST_F(ExitBehaviourTest, WithoutArgumentsOrAPlanNothingIsTouched) {
  const std::string path = (home / "no plan.json").native();
  const auto expectEarlyEnd = [&](const std::vector<std::string>& arguments, const std::string& description) {
    const Outcome outcome = test::runProgram(home / "prefix/bin/QuorinOstrevalUpdater", arguments);
    EXPECT_EQ(outcome.exitStatus, 1);
    EXPECT_EQ(outcome.error, "QuorinOstrevalUpdater: " + description + "\n");
    EXPECT_FALSE(fs::exists(plan.statusPath) || fs::exists(home / "ready") || fs::exists(home / "starts"));
  };
  const std::vector<std::string> arguments{
      "--plan", path, "--ready-file", (home / "ready").native(), "--parent-pid", "2147483647"};
  expectEarlyEnd({"--plan", path}, "The updater received invalid arguments.");
  expectEarlyEnd(arguments, "\"" + path + "\" could not be opened: No such file or directory.");
  writeFile(path, "{\"dmgPath\": \"x\"}");
  expectEarlyEnd(arguments, "The JSON value for the key \"targetAppPath\" is missing.");
}

TEST_F(ExitBehaviourTest, TheStatusIsThereAtEachLaunchAndTheLineOnlyBehindTheLast) {
  const fs::path launches = home / "launches";
  wrapTool("open", "outcome=$(grep -o 'succeeded\":[a-z]*' '" + plan.statusPath + "')\n" +
                       "echo \"$# $1 $2 ${outcome#*:} $(stat -L -c %s /proc/$PPID/fd/2)\" >> '" +
                       launches.native() + "'\nexit 1\n");
  expectRefused(run(), notReplaced + "Could not relaunch Quorin Ostreval.");
  const std::string launch = "2 -n " + target.native();
  EXPECT_EQ(test::readFile(launches), launch + " true 0\n" + launch + " false 0\n");
}

TEST_F(ExitBehaviourTest, LeadsASessionOfItsOwn) {
  wrapTool("open", "[ $(ps -o sid= -p $PPID) = $PPID ] && exec \"$0.real\" \"$@\"\n");
  expectUpdated(run());
}

TEST_F(ExitBehaviourTest, TheExitStatusDoesNotDependOnStandardError) {
  plan.expectedBuild = "201";
  const auto readerGone = [] {
    int ends[2];
    if (::pipe(ends) == 0 && ::dup2(ends[1], STDERR_FILENO) == STDERR_FILENO) {
      ::close(ends[0]);
      ::close(ends[1]);
    }
  };
  const auto full = [] { ::dup2(::open("/dev/full", O_WRONLY), STDERR_FILENO); };
  for (const std::function<void()>& prepare : {std::function<void()>(readerGone), {full}}) {
    const Outcome outcome = run(prepare);
    EXPECT_EQ(outcome.exitStatus, 1) << outcome.signal;
    EXPECT_FALSE(status().succeeded);
    fs::remove(plan.statusPath);
  }
}

TEST_F(ExitBehaviourTest, TheWholeLineReachesStandardError) {
  wrapTool("open", "printf 'first\\0second' >&2\nexit 1\n");
  expectRefused(run(), notReplaced + std::string("first\0second", 12));
}

TEST_F(ExitBehaviourTest, ClosedStreamsAndSignalsIgnoredOrBlockedChangeNothing) {
  // A capture file with the number of a stream would be lost on the way into the tool.
  wrapTool("open", "echo \"the tool's message\" >&2\nexit 1\n");
  const Outcome outcome = run([] {
    for (const int stream : {0, 1, 2})
      ::close(stream);
    ::signal(SIGCHLD, SIG_IGN);
    sigset_t all;
    ::sigfillset(&all);
    ::sigprocmask(SIG_BLOCK, &all, nullptr);
  });
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_EQ(status().message, "Quorin Ostreval update failed: " + notReplaced + "the tool's message");
}

}  // namespace
