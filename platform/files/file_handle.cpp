#include "platform/files/file_handle.hpp"

#include <fcntl.h>

namespace platform {

NSFileHandle NSFileHandle::fileHandleForReadingFromURL(const URL& url) {
  return {url, FileDescriptor::openForReading(url)};
}

NSFileHandle NSFileHandle::fileHandleForWritingToURL(const URL& url) {
  return {url, FileDescriptor::open(url, O_WRONLY | O_NOCTTY)};
}

NSFileHandle NSFileHandle::fileHandleWithNullDevice() {
  const URL device = URL::fileURLWithPath("/dev/null");
  return {device, FileDescriptor::open(device, O_RDWR | O_NOCTTY)};
}

std::string_view NSFileHandle::readInto(std::span<char> buffer) {
  std::size_t filled = 0;
  while (filled < buffer.size()) {
    const std::size_t more = descriptor_.read(&buffer[filled], buffer.size() - filled, path_);
    if (more == 0)
      break;
    filled += more;
  }
  return {buffer.data(), filled};
}

void NSFileHandle::closeAndReturnError() {
  descriptor_.close(path_);
}

}  // namespace platform
