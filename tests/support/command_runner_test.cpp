#include "support/command_runner.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <thread>

#include "platform/processes/cancellation.hpp"
#include "tests/helpers/files.hpp"
#include "tests/helpers/program.hpp"

namespace fs = std::filesystem;
namespace CommandRunner = QuorinSupport::CommandRunner;
using QuorinSupport::CommandResult;

namespace {

class CommandRunnerTest : public testing::Test {
 protected:
  /// Runs what the shell makes of `script`.
  static CommandResult run(const std::string& script, double timeout = 60) {
    return CommandRunner::run("/bin/sh", {"-c", script}, timeout);
  }

  /// What the call was left with: "result", or the description of the error.
  static std::string failureOf(const std::string& script, double timeout) {
    try {
      run(script, timeout);
      return "result";
    } catch (const CommandRunner::Failure& failure) {
      return failure.errorDescription().value();
    } catch (const platform::Error& error) {
      return error.localizedDescription();
    }
  }

  /// The tool noted its capture file; neither it nor its directory remains.
  void expectCaptureGone() const {
    const fs::path file = test::readFile(capture);
    EXPECT_TRUE(file.parent_path().filename().native().starts_with("QuorinCommand-")) << file;
    EXPECT_FALSE(fs::exists(file.parent_path())) << file;
  }

  test::TemporaryDirectory directory;
  const fs::path capture = directory / "capture";
  const std::string noteCapture = "printf %s \"$(readlink /proc/$$/fd/1)\" > '" + capture.native() + "'; ";
  const std::string overrun = noteCapture + "exec sleep 30";
  const std::string ignoreTermination = noteCapture + "trap '' TERM; exec sleep 30";
  const std::string timedOut = "sh did not finish in time.";
};

TEST_F(CommandRunnerTest, AnyStatusAndAllOutputComeBack) {
  EXPECT_EQ(run("exit 255").status, 255);
  EXPECT_EQ(run("kill -11 $$", 1e300).status, 11);
  const CommandResult result =
      run(noteCapture +
          "wc -c; head -c 3145728 /dev/zero | tr '\\0' o; head -c 5242880 /dev/zero | tr '\\0' e >&2");
  EXPECT_EQ(result.stdout.bytes(), "0\n" + std::string(3 << 20, 'o')) << "standard input was not at its end";
  EXPECT_EQ(result.stderr.bytes(), std::string(5 << 20, 'e'));
  expectCaptureGone();
}

TEST_F(CommandRunnerTest, AToolInheritsNothingButItsStreams) {
  // What the application may have left to the updater: an open file, ignored and blocked signals.
  const auto seenByTool = [&] {
    const int leaked = ::dup2(::open("/dev/null", O_RDONLY), 57);
    for (const int ignored : {SIGPIPE, SIGTERM, SIGCHLD})
      ::signal(ignored, SIG_IGN);
    sigset_t all;
    ::sigfillset(&all);
    ::sigprocmask(SIG_BLOCK, &all, nullptr);
    EXPECT_EQ(run("cd /proc/$$ && ls fd && readlink fd/0").stdout.bytes(), "0\n1\n2\n/dev/null\n");
    // The masks of the signals 1 to 28; the C library keeps some above them to itself. A shell would clear
    // its own.
    EXPECT_EQ(
        CommandRunner::run("/bin/sed", {"-n", R"(s/^Sig[BI].*\(.\{7\}\)$/\1/p)", "/proc/self/status"}, 60)
            .stdout.bytes(),
        "0000000\n0000000\n");
    return leaked == 57 && !HasFailure() ? 0 : 1;
  };
  EXPECT_EQ(test::inChild(seenByTool), 0);
}

TEST_F(CommandRunnerTest, AToolThatCannotBeStartedIsAFailureOfTheLaunch) {
  test::writeFile(directory / "text", "no program");
  test::writeFile(directory / "plain", "plain text\n");
  fs::permissions(directory / "plain", fs::perms::owner_all);
  const auto failureOfLaunch = [](const fs::path& tool, const std::string& argument) {
    try {
      CommandRunner::run(tool.native(), {argument}, 60);
      return 0;
    } catch (const platform::SystemError& error) {
      return error.errorNumber();
    }
  };
  EXPECT_EQ(failureOfLaunch(directory / "missing", ""), ENOENT);
  EXPECT_EQ(failureOfLaunch(directory / "text", ""), EACCES);
  EXPECT_EQ(failureOfLaunch(directory / "plain", ""), ENOEXEC);
  EXPECT_EQ(failureOfLaunch("/bin/sh", std::string("a\0b", 3)), EINVAL);
  // Nothing is left to collect: a failed launch makes no child.
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
}

TEST_F(CommandRunnerTest, AGrandchildThatKeepsTheStreamsDelaysNothing) {
  const pid_t grandchild = std::stoi(std::string(run("sleep 60 & printf $!").stdout.bytes()));
  EXPECT_EQ(::kill(grandchild, SIGKILL), 0) << "the call returned only after its end";
}

TEST_F(CommandRunnerTest, NobodyElseGetsAtTheOutputWhateverTheMask) {
  const mode_t before = ::umask(0);
  const CommandResult result = run("file=$(readlink /proc/$$/fd/1); stat -c %a \"${file%/*}\"");
  ::umask(before);
  EXPECT_EQ(result.stdout.bytes(), "700\n");
}

TEST_F(CommandRunnerTest, AnOverrunningToolIsStopped) {
  for (const double timeout : {0.3, 0.0, -1e300})
    EXPECT_EQ(failureOf(overrun, timeout), timedOut);
  expectCaptureGone();
  // It is asked to end and may take a while over it; one that ignores that is killed.
  const fs::path ended = directory / "ended";
  failureOf("trap 'sleep 0.2; touch \"" + ended.native() + "\"; exit' TERM; while :; do sleep 0.02; done",
            0.3);
  EXPECT_TRUE(fs::exists(ended));
  const fs::path went = directory / "went on";
  EXPECT_EQ(failureOf(noteCapture + "trap '' TERM; sleep 20; touch '" + went.native() + "'", 0.3), timedOut);
  EXPECT_FALSE(fs::exists(went));
  expectCaptureGone();
}

TEST_F(CommandRunnerTest, ACancelledTaskStartsNoTool) {
  platform::Task task;
  task.cancel();
  const platform::Task::Scope scope(task);
  EXPECT_THROW(run(noteCapture), platform::CancellationError);
  EXPECT_FALSE(fs::exists(capture));
}

TEST_F(CommandRunnerTest, CancellationStopsTheToolAndWinsOverTheTimeLimit) {
  // While the tool runs, and while it has been asked to end.
  for (const auto& [script, timeout] : {std::pair(overrun, 60.0), {ignoreTermination, 0.2}}) {
    platform::Task task;
    const platform::Task::Scope scope(task);
    const std::jthread other([&task] {
      std::this_thread::sleep_for(std::chrono::milliseconds(600));
      task.cancel();
    });
    EXPECT_THROW(run(script, timeout), platform::CancellationError);
    expectCaptureGone();
  }
}

}  // namespace
