#include "platform/hdiutil/disk.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "platform/foundation/error.hpp"
#include "platform/hdiutil/image_error.hpp"

namespace platform::hdiutil {
namespace {

constexpr std::size_t kChunkSize = 1U << 18U;
constexpr const char* kTemporaryName = "temporary";

void setSize(const FileDescriptor& file, std::uint64_t size) {
  if (uninterrupted([&] { return ::ftruncate(file.get(), static_cast<off_t>(size)); }) != 0)
    throw SystemError("The volume could not be stored", errno);
}

}  // namespace

std::string Disk::read(std::uint64_t offset, std::uint64_t length) {
  requireInside(offset, length);
  std::string bytes(length, '\0');
  read(offset, std::span(bytes));
  return bytes;
}

FileDescriptor Disk::file(std::uint64_t offset, std::uint64_t length, const FileDescriptor& directory) {
  requireInside(offset, length);
  requireSpace(directory, storedLength(offset, length));
  FileDescriptor copy = namelessFile(directory);
  setSize(copy, length);
  std::vector<char> chunk(kChunkSize);
  for (std::uint64_t done = 0; done < length; done += chunk.size()) {
    chunk.resize(std::min<std::uint64_t>(chunk.size(), length - done));
    take(offset + done, chunk);
    if (!isZero(chunk))
      writeAt(copy, done, chunk);
  }
  return copy;
}

void Disk::requireInside(std::uint64_t offset, std::uint64_t length) const {
  if (!ByteRange{offset, length}.within(size()))
    throw ImageError("it is damaged: a volume extends beyond the end of its disk");
}

RawDisk::RawDisk(FileDescriptor image) : image_(std::move(image)), size_(sizeOf(image_)) {}

void RawDisk::read(std::uint64_t offset, std::span<char> buffer) {
  requireInside(offset, buffer.size());
  readAt(image_, offset, buffer);
}

FileDescriptor RawDisk::file(std::uint64_t offset, std::uint64_t length, const FileDescriptor& directory) {
  if (offset != 0 || length != size_)
    return Disk::file(offset, length, directory);
  FileDescriptor same(::fcntl(image_.get(), F_DUPFD_CLOEXEC, 0));
  if (!same.isOpen())
    throw SystemError("The disk image could not be opened again", errno);
  return same;
}

std::uint64_t sizeOf(const FileDescriptor& file) {
  struct stat status {};
  if (::fstat(file.get(), &status) != 0)
    throw SystemError("The disk image could not be examined", errno);
  return static_cast<std::uint64_t>(status.st_size);
}

FileDescriptor namelessFile(const FileDescriptor& directory) {
  FileDescriptor file = FileDescriptor::openAt(directory, kTemporaryName, O_RDWR | O_CREAT | O_EXCL, 0600);
  if (::unlinkat(directory.get(), kTemporaryName, 0) != 0)
    throw SystemError("A temporary file could not be removed", errno);
  return file;
}

void requireSpace(const FileDescriptor& directory, std::uint64_t length, std::uint64_t items) {
  struct statvfs status {};
  if (uninterrupted([&] { return ::fstatvfs(directory.get(), &status); }) != 0)
    throw SystemError("The free space could not be determined", errno);
  // A file system without a limit, such as ramfs, reports no blocks.
  if (status.f_blocks == 0 || status.f_frsize == 0 || length == 0)
    return;
  const std::uint64_t available = status.f_bavail;
  const std::uint64_t needed = length / status.f_frsize + items;
  if (needed > available)
    throw ImageLimitError("it needs " + std::to_string(std::max(length, needed * status.f_frsize)) +
                          " bytes in the temporary directory, where " +
                          std::to_string(available * status.f_frsize) + " are available");
}

std::uint64_t saturatingSum(std::uint64_t one, std::uint64_t other) {
  return other > UINT64_MAX - one ? UINT64_MAX : one + other;
}

bool isZero(std::span<const char> bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](char byte) { return byte == 0; });
}

void readAt(const FileDescriptor& file, std::uint64_t offset, std::span<char> buffer) {
  const std::optional<std::size_t> count = file.readAt(offset, buffer);
  if (!count)
    throw SystemError("The disk image could not be read", errno);
  std::ranges::fill(buffer.subspan(*count), '\0');
}

void writeAt(const FileDescriptor& file, std::uint64_t offset, std::span<const char> bytes) {
  if (!file.writeAt(offset, bytes))
    throw SystemError("The volume's content could not be written", errno);
}

}  // namespace platform::hdiutil
