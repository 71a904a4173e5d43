#include "platform/files/file_descriptor.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "platform/foundation/error.hpp"

namespace platform {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
  FileDescriptor old(std::exchange(descriptor_, other.release()));
  return *this;
}

FileDescriptor::~FileDescriptor() {
  // Writers call close() and see its errors; a failure here loses nothing.
  if (isOpen())
    ::close(descriptor_);
}

FileDescriptor FileDescriptor::open(const URL& url, int flags, unsigned mode) {
  const char* path = systemPath(url);
  FileDescriptor opened(uninterrupted([&] { return ::open(path, flags | O_CLOEXEC, mode); }));
  if (!opened.isOpen())
    throw SystemError(quoted(url.path()) + " could not be opened", errno);
  return opened;
}

FileDescriptor FileDescriptor::openForReading(const URL& url) {
  FileDescriptor opened = open(url, O_RDONLY | O_NOCTTY | O_NONBLOCK);
  struct stat status {};
  if (::fstat(opened.get(), &status) != 0)
    throw SystemError(quoted(url.path()) + " could not be examined", errno);
  if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode))
    throw Error(quoted(url.path()) + " could not be read: It is not a regular file.");
  return opened;
}

FileDescriptor FileDescriptor::openAt(const FileDescriptor& directory, const std::string& name, int flags,
                                      unsigned mode) {
  FileDescriptor opened = tryOpenAt(directory, name, flags, mode);
  if (!opened.isOpen())
    throw SystemError(quoted(name) + " could not be opened", errno);
  return opened;
}

FileDescriptor FileDescriptor::tryOpenAt(const FileDescriptor& directory, const std::string& name, int flags,
                                         unsigned mode) noexcept {
  return FileDescriptor(
      uninterrupted([&] { return ::openat(directory.get(), name.c_str(), flags | O_CLOEXEC, mode); }));
}

int FileDescriptor::release() noexcept {
  return std::exchange(descriptor_, -1);
}

void FileDescriptor::close(std::string_view item) {
  // Linux releases the descriptor even when close() fails with EINTR.
  if (::close(release()) != 0 && errno != EINTR)
    throw SystemError(quoted(item) + " could not be closed", errno);
}

std::size_t FileDescriptor::read(void* buffer, std::size_t capacity, std::string_view item) const {
  const auto count = uninterrupted([&] { return ::read(descriptor_, buffer, capacity); });
  if (count < 0)
    throw SystemError(quoted(item) + " could not be read", errno);
  return static_cast<std::size_t>(count);
}

void FileDescriptor::writeAll(std::string_view bytes, std::string_view item) const {
  while (!bytes.empty()) {
    const auto count = uninterrupted([&] { return ::write(descriptor_, bytes.data(), bytes.size()); });
    if (count < 0)
      throw SystemError(quoted(item) + " could not be written", errno);
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

std::optional<std::size_t> FileDescriptor::readAt(std::uint64_t offset,
                                                  std::span<char> buffer) const noexcept {
  std::size_t filled = 0;
  while (filled < buffer.size()) {
    const auto count = uninterrupted([&] {
      return ::pread(descriptor_, &buffer[filled], buffer.size() - filled,
                     static_cast<off_t>(offset + filled));
    });
    if (count < 0)
      return std::nullopt;
    if (count == 0)
      break;
    filled += static_cast<std::size_t>(count);
  }
  return filled;
}

bool FileDescriptor::writeAt(std::uint64_t offset, std::span<const char> bytes) const noexcept {
  while (!bytes.empty()) {
    const auto count = uninterrupted(
        [&] { return ::pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset)); });
    if (count < 0)
      return false;
    bytes = bytes.subspan(static_cast<std::size_t>(count));
    offset += static_cast<std::uint64_t>(count);
  }
  return true;
}

const char* systemPath(const URL& url) {
  if (url.path().find('\0') != std::string::npos)
    throw SystemError(quoted(url.path()) + " contains a null character", EINVAL);
  return url.path().c_str();
}

}  // namespace platform
