#include "platform/foundation/process.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>

#include "platform/foundation/error.hpp"
#include "platform/foundation/thread.hpp"
#include "tests/support/files.hpp"
#include "tests/support/program.hpp"

namespace fs = std::filesystem;
using platform::NSFileHandle;
using platform::NSTask;
using platform::URL;

namespace {

URL url(const fs::path& path) {
  return URL::fileURLWithPath(path.native());
}

class ProcessTest : public testing::Test {
 protected:
  /// Launches and waits; the tool's output is in `outputOf`.
  std::int32_t run(const URL& program, std::vector<std::string> arguments) const {
    NSTask task;
    connect(task, program, std::move(arguments));
    task.launchAndReturnError();
    task.waitUntilExit();
    return task.terminationStatus();
  }

  void connect(NSTask& task, const URL& program, std::vector<std::string> arguments) const {
    task.setExecutableURL(program);
    task.setArguments(std::move(arguments));
    task.setStandardInput(nullDevice);
    task.setStandardOutput(output);
    task.setStandardError(output);
  }

  std::string written() const { return test::readFile(directory / "output"); }

  int launchFailure(const URL& program, std::vector<std::string> arguments = {}) const {
    try {
      run(program, std::move(arguments));
      return 0;
    } catch (const platform::SystemError& error) {
      return error.errorNumber();
    }
  }

  test::TemporaryDirectory directory;
  URL shell = URL::fileURLWithPath("/bin/sh");
  NSFileHandle nullDevice = NSFileHandle::fileHandleWithNullDevice();
  NSFileHandle output = (test::writeFile(directory / "output", ""),
                         NSFileHandle::fileHandleForWritingToURL(url(directory / "output")));
};

TEST_F(ProcessTest, TheStatusIsTheExitStatusOrTheSignal) {
  for (const auto& [script, status] :
       {std::pair("exit 0", 0), {"exit 127", 127}, {"kill -9 $$", 9}, {"kill -15 $$", 15}})
    EXPECT_EQ(run(shell, {"-c", script}), status) << script;
}

TEST_F(ProcessTest, ArgumentsArriveAsTheyAre) {
  run(URL::fileURLWithPath("/usr/bin/printf"), {"%s\n", "a b", "", "$HOME", "caf\xC3\xA9", "\xFF"});
  EXPECT_EQ(written(), "a b\n\n$HOME\ncaf\xC3\xA9\n\xFF\n");
}

TEST_F(ProcessTest, AChildInheritsNothingButItsStreams) {
  EXPECT_EQ(test::inChild([&] {
              // What the application may have left to the updater: an open file, ignored and blocked signals.
              const int leaked = ::dup2(::open("/dev/null", O_RDONLY), 57);
              ::signal(SIGPIPE, SIG_IGN);
              ::signal(SIGTERM, SIG_IGN);
              sigset_t all;
              ::sigfillset(&all);
              ::sigprocmask(SIG_BLOCK, &all, nullptr);
              const char* script =
                  "cd /proc/$$ && ls fd && readlink fd/0 && sed -n 's/^Sig[BI].*\\(.\\{7\\}\\)$/\\1/p' "
                  "/proc/self/status";
              return leaked == 57 ? run(shell, {"-c", script}) : 1;
            }),
            0);
  // The masks of the signals 1 to 28; the C library keeps some above them to itself.
  EXPECT_EQ(written(), "0\n1\n2\n/dev/null\n0000000\n0000000\n");
}

TEST_F(ProcessTest, TheStatusSurvivesAnApplicationThatIgnoredItsChildren) {
  EXPECT_EQ(test::inChild([&] {
              ::signal(SIGCHLD, SIG_IGN);
              return run(shell, {"-c", "exit 42"});
            }),
            42);
}

TEST_F(ProcessTest, AToolThatCannotBeStartedIsAFailureOfTheLaunch) {
  test::writeFile(directory / "text", "no program");
  test::writeFile(directory / "script", "#!/no/such/interpreter\n");
  test::writeFile(directory / "plain", "plain text\n");
  for (const char* name : {"script", "plain"})
    fs::permissions(directory / name, fs::perms::owner_all);
  EXPECT_EQ(launchFailure(url(directory / "missing")), ENOENT);
  EXPECT_EQ(launchFailure(url(directory / "text")), EACCES);
  EXPECT_EQ(launchFailure(url(directory.path())), EACCES);
  EXPECT_EQ(launchFailure(url(directory / "script")), ENOENT);
  EXPECT_EQ(launchFailure(url(directory / "plain")), ENOEXEC);
  EXPECT_EQ(launchFailure(shell, {std::string("a\0b", 3)}), EINVAL);
  // Nothing is left to collect: a failed launch makes no child.
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
}

TEST_F(ProcessTest, ThePlatformsToolsAreThoseOfTheInstallation) {
  const int failure = launchFailure(URL::fileURLWithPath("/usr/bin/open"));
  EXPECT_EQ(failure, 0);
  EXPECT_THAT(written(), testing::HasSubstr("Usage: open -n"));
}

TEST_F(ProcessTest, AChildDoesNotOutliveItsOwner) {
  pid_t child = 0;
  const auto start = std::chrono::steady_clock::now();
  {
    NSTask task;
    connect(task, shell, {"-c", "exec sleep 30"});
    task.launchAndReturnError();
    EXPECT_TRUE(task.isRunning());
    child = task.processIdentifier();
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_EQ(::kill(child, 0), -1);
  EXPECT_EQ(errno, ESRCH);
}

}  // namespace
