#include "platform/foundation/file_handle.hpp"

#include <fcntl.h>

namespace platform {

NSFileHandle NSFileHandle::fileHandleForReadingFromURL(const URL& url) {
  return {url, O_RDONLY | O_NOCTTY};
}

NSFileHandle NSFileHandle::fileHandleForWritingToURL(const URL& url) {
  return {url, O_WRONLY | O_NOCTTY};
}

NSFileHandle NSFileHandle::fileHandleWithNullDevice() {
  return {URL::fileURLWithPath("/dev/null"), O_RDWR | O_NOCTTY};
}

std::optional<Data> NSFileHandle::readUpToCount(std::size_t count) {
  std::string bytes(count, '\0');
  std::size_t filled = 0;
  while (filled < count) {
    const std::size_t more = descriptor_.read(&bytes[filled], count - filled, path_);
    if (more == 0)
      break;
    filled += more;
  }
  if (filled == 0)
    return std::nullopt;
  bytes.resize(filled);
  return Data(std::move(bytes));
}

void NSFileHandle::closeAndReturnError() {
  descriptor_.close(path_);
}

}  // namespace platform
