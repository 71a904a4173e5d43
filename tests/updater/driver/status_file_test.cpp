#include "updater/driver/status_file.hpp"

#include <gtest/gtest.h>
#include <sys/syscall.h>

#include "platform/files/data.hpp"
#include "tests/helpers/files.hpp"
#include "tests/helpers/program.hpp"
#include "tests/helpers/syscall_fault.hpp"

using QuorinOstrevalUpdater::InstallStatus;
using QuorinOstrevalUpdater::writeStatus;

namespace {

const InstallStatus kStatus{.succeeded = true, .message = "It \"works\" \xC3\xA9.", .version = "2.0"};

InstallStatus read(const std::filesystem::path& path) {
  return platform::JSONDecoder().decode<InstallStatus>(platform::Data(test::readFile(path)));
}

TEST(StatusFileTest, MissingDirectoriesAreMade) {
  const test::TemporaryDirectory directory;
  const auto path = directory / "a/b/status.json";
  writeStatus({}, path);
  writeStatus(kStatus, path);
  EXPECT_EQ(read(path), kStatus);
}

TEST(StatusFileTest, FailuresStaySilentAndHarmless) {
  const test::TemporaryDirectory directory;
  test::writeFile(directory / "file", "kept");
  const auto before = test::inventory(directory.path());
  for (const std::string& path :
       {(directory / "file/status.json").native(), directory.path().native(), std::string(),
        std::string("/proc/none/status.json"), std::string("/tmp/a\0b", 8)})
    writeStatus(kStatus, path);
  EXPECT_EQ(test::inventory(directory.path()), before);
}

TEST(StatusFileTest, NoOlderStatusOutlivesAFailure) {
  const test::TemporaryDirectory directory;
  const auto path = directory / "status.json";
  for (const bool isStatus : {true, false}) {
    test::writeFile(path, isStatus ? R"({"succeeded": true, "message": "", "version": ""})" : "kept");
    const int result = test::inChild([&] {
      if (!test::inject({.number = SYS_renameat, .errorNumber = EIO}))
        return 1;
      writeStatus({}, path);
      return 0;
    });
    ASSERT_EQ(result, 0);
    EXPECT_EQ(std::filesystem::exists(path), !isStatus);
  }
}

}  // namespace
