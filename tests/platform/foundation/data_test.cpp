#include "platform/foundation/data.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "platform/foundation/error.hpp"
#include "tests/support/files.hpp"
#include "tests/support/program.hpp"
#include "tests/support/syscall_fault.hpp"

namespace fs = std::filesystem;
using platform::Data;
using platform::DataWritingOptions;
using platform::SystemError;
using platform::URL;

namespace {

URL url(const fs::path& path) {
  return URL::fileURLWithPath(path.native());
}

int write(const fs::path& path, const std::string& content) {
  try {
    Data(content).write(url(path), DataWritingOptions::atomic);
    return 0;
  } catch (const SystemError& error) {
    return error.errorNumber();
  }
}

TEST(DataTest, ReadsWholeFiles) {
  const test::TemporaryDirectory directory;
  std::string content(300'000, 'x');
  content[70'000] = '\0';
  test::writeFile(directory / "file", content);
  EXPECT_EQ(Data::contentsOf(url(directory / "file")).bytes(), content);
  EXPECT_FALSE(Data::contentsOf(URL::fileURLWithPath("/proc/self/stat")).empty());
  EXPECT_THROW(Data::contentsOf(url(directory.path())), SystemError);
  EXPECT_THROW(Data::contentsOf(url(directory / "missing")), SystemError);
}

TEST(DataTest, DoesNotWaitForWhatIsNoFile) {
  const test::TemporaryDirectory directory;
  ASSERT_EQ(::mkfifo((directory / "fifo").c_str(), 0600), 0);
  EXPECT_THROW(Data::contentsOf(url(directory / "fifo")), platform::Error);
  EXPECT_THROW(Data::contentsOf(URL::fileURLWithPath("/dev/zero")), platform::Error);
}

TEST(DataTest, WritesFilesAsAWhole) {
  const test::TemporaryDirectory directory;
  EXPECT_EQ(write(directory / "new", "first"), 0);
  EXPECT_EQ(::chmod((directory / "new").c_str(), 0600), 0);
  EXPECT_EQ(write(directory / "new", "second"), 0);
  EXPECT_THAT(test::inventory(directory.path()),
              testing::ElementsAre(testing::Pair("new", "file 600 second")));
  const std::string longest(255, 'n');
  EXPECT_EQ(write(directory / longest, "fits"), 0);
}

TEST(DataTest, ReplacesALinkAndNotWhatItLeadsTo) {
  const test::TemporaryDirectory directory;
  test::writeFile(directory / "elsewhere", "kept");
  fs::create_symlink(directory / "elsewhere", directory / "link");
  EXPECT_EQ(write(directory / "link", "new"), 0);
  EXPECT_EQ(test::readFile(directory / "elsewhere"), "kept");
  EXPECT_EQ(test::readFile(directory / "link"), "new");
}

TEST(DataTest, AFailureLeavesTheOldFileAndNoOther) {
  const test::TemporaryDirectory directory;
  test::writeFile(directory / "file", "old");
  fs::create_directory(directory / "directory");
  fs::create_directory_symlink("directory", directory / "link");
  EXPECT_EQ(::mkfifo((directory / "fifo").c_str(), 0600), 0);
  const auto before = test::inventory(directory.path());
  EXPECT_EQ(write(directory / "directory", "x"), EISDIR);
  EXPECT_EQ(write(directory / "link", "x"), EISDIR);
  EXPECT_EQ(write(directory / "fifo", "x"), EEXIST);
  EXPECT_EQ(write(directory / "missing/file", "x"), ENOENT);
  for (const long call : {SYS_write, SYS_fsync, SYS_renameat, SYS_fchmod})
    EXPECT_EQ(test::inChild([&] {
                return test::inject({call, EIO}) ? write(directory / "file", "new") : 1;
              }),
              EIO)
        << call;
  EXPECT_EQ(
      test::inChild([&] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{1000, 1000};
        return ::setrlimit(RLIMIT_FSIZE, &limit) == 0 ? write(directory / "file", std::string(5000, 'x')) : 1;
      }),
      EFBIG);
  EXPECT_EQ(test::inventory(directory.path()), before);
}

}  // namespace
