#include "platform/files/data.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/foundation/error.hpp"
#include "tests/helpers/files.hpp"

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

TEST(DataTest, ReadsWholeFilesAndDoesNotWaitForWhatIsNone) {
  const test::TemporaryDirectory directory;
  std::string content(300'000, 'x');
  content[70'000] = '\0';
  test::writeFile(directory / "file", content);
  EXPECT_EQ(Data::contentsOf(url(directory / "file")).bytes(), content);
  EXPECT_FALSE(Data::contentsOf(url("/proc/self/stat")).empty());
  ASSERT_EQ(::mkfifo((directory / "fifo").c_str(), 0600), 0);
  for (const fs::path& other : {directory.path(), directory / "fifo", fs::path("/dev/zero")})
    EXPECT_THROW(Data::contentsOf(url(other)), platform::Error) << other;
}

TEST(DataTest, WritesFilesAsAWhole) {
  const test::TemporaryDirectory directory;
  EXPECT_EQ(write(directory / "new", "first"), 0);
  EXPECT_EQ(::chmod((directory / "new").c_str(), 0600), 0);
  EXPECT_EQ(write(directory / "new", "second"), 0);
  EXPECT_THAT(test::inventory(directory.path()),
              testing::ElementsAre(testing::Pair("new", "file 600 second")));
  EXPECT_EQ(write(directory / std::string(255, 'n'), "fits"), 0);
  fs::create_symlink("new", directory / "link");
  EXPECT_EQ(write(directory / "link", "the link goes, what it leads to stays"), 0);
  EXPECT_EQ(test::readFile(directory / "new"), "second");
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
  EXPECT_EQ(test::inventory(directory.path()), before);
}

}  // namespace
