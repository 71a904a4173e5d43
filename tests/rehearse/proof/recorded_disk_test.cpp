#include "rehearse/proof/recorded_disk.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <optional>

#include "platform/files/file_descriptor.hpp"
#include "platform/foundation/error.hpp"
#include "rehearse/files/trees.hpp"
#include "tests/helpers/files.hpp"
#include "tests/helpers/private_mounts.hpp"

namespace {

using rehearse::DiskHistory;
using rehearse::RecordedDisk;
using rehearse::ReversibleFile;

void write(int file, off_t offset, const std::string& bytes) {
  ASSERT_EQ(::pwrite(file, bytes.data(), bytes.size(), offset), static_cast<ssize_t>(bytes.size()));
}

TEST(RecordedDisk, knowsWhatAFlushLeftUncertain) {
  const test::TemporaryDirectory directory;
  const std::string empty(65'536, '.');
  rehearse::writeFile(directory / "content", empty);
  rehearse::writeFile(directory / "disk", "");
  ReversibleFile content(directory / "content");
  DiskHistory recorded = DiskHistory::create(directory / "history");
  std::optional<RecordedDisk> disk;
  try {
    if (test::enterPrivateMounts())
      disk.emplace(content, directory / "disk", &recorded);
  } catch (const platform::SystemError&) {
  }
  if (!disk)
    GTEST_SKIP() << "The system refuses private mounts or FUSE.";
  {
    const platform::FileDescriptor file(::open((directory / "disk").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_TRUE(file.isOpen());
    write(file.get(), 512, "first");
    ASSERT_EQ(::fsync(file.get()), 0);
    write(file.get(), 65'530, "second");
    write(file.get(), 512, "third");
    // Behind the end there is no disk.
    EXPECT_EQ(::pwrite(file.get(), "x", 1, 65'536), -1);
  }
  EXPECT_EQ(disk->writes(), 3U);
  disk.reset();
  const DiskHistory history = DiskHistory::open(directory / "history");
  ASSERT_EQ(history.writes(), 3U);
  EXPECT_EQ(history.flushes(), std::vector<std::size_t>{1});
  EXPECT_EQ(history.write(1).offset, 65'530U);
  EXPECT_EQ(history.write(1).bytes, "second");
  EXPECT_EQ(content.read(512, 5), "third");
  content.takeBack(1);
  EXPECT_EQ(content.read(512, 5), "first");
  EXPECT_EQ(content.read(65'530, 99), "......");
  content.takeBack(0);
  EXPECT_EQ(rehearse::readFile(directory / "content"), empty);
}

}  // namespace
