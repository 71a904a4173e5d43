#include <fcntl.h>
#include <linux/btrfs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include "platform/foundation/error.hpp"
#include "rehearse/files/program.hpp"
#include "rehearse/files/trees.hpp"
#include "rehearse/proof/disk_volume.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

constexpr std::uint64_t kMebibyte = 1 << 20;

void runOrThrow(const std::string& program, const std::vector<std::string>& arguments) {
  const Outcome outcome = runProgram(program, arguments);
  if (outcome.exitStatus != 0)
    throw platform::Error(outcome.error.empty()
                              ? program + " cannot be executed"
                              : program + ": " + outcome.error.substr(0, outcome.error.find('\n')));
}

void require(bool isWritten) {
  if (!isWritten)
    throw platform::SystemError("The disk could not be written", errno);
}

/// The journals of ext4 and XFS keep all that precedes what a flushed file needs.
void commitByFlush(const fs::path& volume) {
  const platform::FileDescriptor file(
      ::open((volume / "ticker").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  require(file.isOpen() && ::write(file.get(), "x", 1) == 1 && ::fsync(file.get()) == 0);
}

/// On btrfs a flushed file's log has nothing else in it; a transaction has all names.
void commitTransaction(const fs::path& volume) {
  const platform::FileDescriptor root(::open(volume.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::uint64_t transaction = 0;
  require(root.isOpen() && ::ioctl(root.get(), BTRFS_IOC_START_SYNC, &transaction) == 0 &&
          ::ioctl(root.get(), BTRFS_IOC_WAIT_SYNC, &transaction) == 0);
}

fs::path emptyFile(const fs::path& path) {
  writeFile(path, "");
  return path;
}

}  // namespace

const DiskFileSystem& diskFileSystem(const std::string& name) {
  static const std::vector<DiskFileSystem> kAll{
      {"ext4", {"/sbin/mkfs.ext4", "-q", "-F"}, 24 * kMebibyte, "", ",data=writeback", commitByFlush},
      // Several copies of one disk are mounted at the same time.
      {"xfs", {"/sbin/mkfs.xfs", "-q"}, 320 * kMebibyte, ",nouuid", "", commitByFlush},
      {"btrfs", {"/sbin/mkfs.btrfs", "-q"}, 128 * kMebibyte, "", "", commitTransaction},
  };
  const auto found = std::ranges::find(kAll, name, &DiskFileSystem::name);
  if (found == kAll.end())
    throw std::invalid_argument("There are no power cuts on " + name + ".");
  return *found;
}

void makeDisk(const DiskFileSystem& fileSystem, const fs::path& file, std::uint64_t room) {
  fs::resize_file(emptyFile(file), fileSystem.size + room);
  std::vector<std::string> arguments(fileSystem.make.begin() + 1, fileSystem.make.end());
  arguments.push_back(file.native());
  runOrThrow(fileSystem.make.front(), arguments);
}

void copyDisk(const fs::path& from, const fs::path& to) {
  runOrThrow("/bin/cp", {"--sparse=always", from.native(), to.native()});
}

Volume::Volume(ReversibleFile& content, const fs::path& directory, const DiskFileSystem& fileSystem,
               const std::string& options, DiskHistory* history)
    : fileSystem_(fileSystem),
      mountPoint_(directory / "volume"),
      disk_(content, emptyFile(directory / "device"), history) {
  fs::create_directories(mountPoint_);
  runOrThrow("/bin/mount", {"-t", fileSystem.name, "-o", "loop" + fileSystem.options + options,
                            disk_.path().native(), mountPoint_.native()});
}

Volume::~Volume() {
  if (::umount2(mountPoint_.c_str(), 0) != 0)
    ::umount2(mountPoint_.c_str(), MNT_DETACH);
}

void Volume::flush() const {
  const platform::FileDescriptor root(::open(mountPoint_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  require(root.isOpen() && ::syncfs(root.get()) == 0);
}

}  // namespace rehearse
