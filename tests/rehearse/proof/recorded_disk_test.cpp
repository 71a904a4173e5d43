#include "rehearse/proof/recorded_disk.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <string>

#include "platform/files/file_descriptor.hpp"
#include "platform/foundation/error.hpp"
#include "rehearse/files/program.hpp"
#include "rehearse/files/served_disks.hpp"
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

TEST(ServedDisks, areAbandonedInTheMountsOfAnotherProcess) {
  if (::geteuid() != 0)
    GTEST_SKIP() << "Only the superuser enters the mounts of another process.";
  constexpr int kRefused = 77;
  constexpr int kPatience = 5000;  // milliseconds
  const test::TemporaryDirectory directory;
  rehearse::writeFile(directory / "a disk", "");
  std::array<int, 2> ready{};
  ASSERT_EQ(::pipe(ready.data()), 0);
  const pid_t owner = ::fork();
  if (owner == 0) {
    const int device = ::open("/dev/fuse", O_RDWR | O_NONBLOCK);
    const std::string options = "fd=" + std::to_string(device) + ",rootmode=100600,user_id=0,group_id=0";
    if (!test::enterPrivateMounts() ||
        ::mount(rehearse::kServedDisk, (directory / "a disk").c_str(), "fuse", 0, options.c_str()) != 0)
      ::_exit(kRefused);
    ::close(ready[1]);
    pollfd connection{device, 0, 0};
    ::_exit(::poll(&connection, 1, kPatience) == 1 && (connection.revents & POLLERR) != 0 ? 0 : 1);
  }
  ::close(ready[1]);
  char none = 0;
  EXPECT_EQ(::read(ready[0], &none, 1), 0);
  ::close(ready[0]);
  rehearse::abandonDisksOf(owner);
  if (const int status = rehearse::waitFor(owner); status == kRefused)
    GTEST_SKIP() << "The system refuses private mounts or FUSE.";
  else
    EXPECT_EQ(status, 0);
}

}  // namespace
