#include "updater/driver/parent_process.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "tests/helpers/program.hpp"

using QuorinOstrevalUpdater::waitForExit;

namespace {

double secondsToWaitFor(pid_t process) {
  const auto start = std::chrono::steady_clock::now();
  waitForExit(process);
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST(ParentProcessTest, AProcessOfAnotherUserIsAlive) {
  if (::getuid() != 0)
    GTEST_SKIP() << "only the superuser can become another user";
  const pid_t child = ::fork();
  if (child == 0) {
    ::sleep(1);
    ::_exit(0);
  }
  const std::jthread collector([child] { ::waitpid(child, nullptr, 0); });
  EXPECT_EQ(test::inChild([child] { return ::setuid(65534) == 0 && secondsToWaitFor(child) > 0.5 ? 0 : 1; }),
            0);
}

}  // namespace
