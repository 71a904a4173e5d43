#include "support/command_runner.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "platform/foundation/task.hpp"
#include "tests/support/files.hpp"
#include "tests/support/program.hpp"
#include "tests/support/syscall_fault.hpp"

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
    } catch (const platform::Error& error) {
      return error.localizedDescription();
    }
  }

  /// The tool noted its capture file; neither it nor its directory remains.
  void expectCaptureGone() const {
    const fs::path file = test::readFile(capture);
    EXPECT_EQ(file.filename(), "stdout");
    EXPECT_TRUE(file.parent_path().filename().native().starts_with("QuorinCommand-")) << file;
    EXPECT_FALSE(fs::exists(file.parent_path())) << file;
  }

  static double secondsOf(const std::function<void()>& body) {
    const auto start = std::chrono::steady_clock::now();
    body();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }

  test::TemporaryDirectory directory;
  const fs::path capture = directory / "capture";
  const std::string noteCapture = "printf %s \"$(readlink /proc/$$/fd/1)\" > '" + capture.native() + "'; ";
  const std::string overrun = noteCapture + "exec sleep 30";
  const std::string ignoreTermination = noteCapture + "trap '' TERM; exec sleep 30";
  const std::string removeCapture = "rm \"$(readlink /proc/$$/fd/1)\"";
  const std::string timedOut = "sh did not finish in time.";
};

TEST_F(CommandRunnerTest, AnyStatusIsAResult) {
  for (const int status : {0, 1, 255})
    EXPECT_EQ(run("exit " + std::to_string(status)).status, status);
  EXPECT_EQ(run("kill -11 $$", 1e300).status, 11);
  const CommandResult silent = run("exit 0");
  EXPECT_TRUE(silent.stdout.empty() && silent.stderr.empty());
}

TEST_F(CommandRunnerTest, AllOutputComesBack) {
  const CommandResult result =
      run("head -c 3145728 /dev/zero | tr '\\0' o; head -c 5242880 /dev/zero | tr '\\0' e >&2");
  EXPECT_EQ(result.stdout.bytes(), std::string(3 << 20, 'o'));
  EXPECT_EQ(result.stderr.bytes(), std::string(5 << 20, 'e'));
}

TEST_F(CommandRunnerTest, StandardInputIsAtItsEnd) {
  EXPECT_EQ(run("wc -c").stdout.bytes(), "0\n");
}

TEST_F(CommandRunnerTest, AGrandchildThatKeepsTheStreamsDelaysNothing) {
  EXPECT_LT(secondsOf([&] { EXPECT_EQ(run("sleep 3 & printf left").stdout.bytes(), "left"); }), 2.0);
}

TEST_F(CommandRunnerTest, NobodyElseGetsAtTheOutputWhateverTheMask) {
  const mode_t before = ::umask(0);
  const std::string script = "file=$(readlink /proc/$$/fd/1); stat -c %a \"${file%/*}\"";
  const CommandResult result = CommandRunner::run("/bin/sh", {"-c", script}, 60);
  ::umask(before);
  EXPECT_EQ(result.stdout.bytes(), "700\n");
}

TEST_F(CommandRunnerTest, AnOverrunningToolIsStopped) {
  EXPECT_EQ(failureOf(overrun, 0.3), timedOut);
  expectCaptureGone();
}

TEST_F(CommandRunnerTest, AToolMayEndByItselfWithinTheGracePeriod) {
  const double seconds = secondsOf([&] {
    EXPECT_EQ(failureOf("trap 'sleep 0.2; touch \"" + (directory / "ended").native() +
                            "\"; exit' TERM; while :; do sleep 0.02; done",
                        0.3),
              timedOut);
  });
  EXPECT_TRUE(fs::exists(directory / "ended"));
  EXPECT_LT(seconds, 1.2);
}

TEST_F(CommandRunnerTest, AToolThatDoesNotEndIsKilled) {
  const double seconds = secondsOf([&] { EXPECT_EQ(failureOf(ignoreTermination, 0.3), timedOut); });
  EXPECT_GT(seconds, 1.2);
  EXPECT_LT(seconds, 10);
  expectCaptureGone();
}

TEST_F(CommandRunnerTest, WithoutTimeARunningToolIsStoppedAtOnce) {
  for (const double timeout : {0.0, -5.0, -1e300})
    EXPECT_LT(secondsOf([&] { EXPECT_EQ(failureOf(overrun, timeout), timedOut); }), 1.0);
}

TEST_F(CommandRunnerTest, NothingStaysBehindOnAnyWayOut) {
  run(noteCapture);
  expectCaptureGone();
  EXPECT_NE(failureOf(removeCapture, 60).find("/stdout\" could not be opened: No such file"),
            std::string::npos);
  const auto captures = [] {
    std::size_t count = 0;
    for (const auto& entry : fs::directory_iterator("/tmp"))
      count += entry.path().filename().native().starts_with("QuorinCommand-") ? 1U : 0U;
    return count;
  };
  // In a mount namespace of its own this would be exact; beside other tests, only growth by this one is
  // looked for.
  const std::size_t before = captures();
  for (int round = 0; round < 20; ++round)
    EXPECT_THROW(CommandRunner::run("/no/such/tool", {}, 60), platform::Error);
  EXPECT_LT(captures(), before + 20);
}

TEST_F(CommandRunnerTest, FailuresOfTheSystemReachTheCallerUnchanged) {
  try {
    CommandRunner::run("/no/such/tool", {}, 60);
    FAIL();
  } catch (const platform::Error& error) {
    EXPECT_STREQ(error.what(), "\"/no/such/tool\" could not be started: No such file or directory.");
  }
  EXPECT_EQ(test::inChild([&] {
              const bool injected = test::inject({SYS_mkdir, ENOSPC});
              return injected && failureOf("exit 0", 60).find("No space left on device.") != std::string::npos
                         ? 0
                         : 1;
            }),
            0);
}

TEST_F(CommandRunnerTest, NoDescriptorIsLeftOpen) {
  EXPECT_EQ(test::inChild([&] {
              const auto countDescriptors = [] {
                return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
              };
              const auto before = countDescriptors();
              run("exit 0");
              failureOf(removeCapture, 60);
              failureOf(overrun, 0);
              try {
                CommandRunner::run("/no/such/tool", {}, 60);
              } catch (const platform::Error&) {
                // What is open afterwards is looked at.
              }
              return countDescriptors() == before ? 0 : 1;
            }),
            0);
}

TEST_F(CommandRunnerTest, ACancelledTaskStartsNoTool) {
  platform::Task task;
  task.cancel();
  {
    const platform::Task::Scope scope(task);
    EXPECT_THROW(run(noteCapture), platform::CancellationError);
  }
  EXPECT_FALSE(fs::exists(capture));
  EXPECT_EQ(run("exit 3").status, 3);
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
