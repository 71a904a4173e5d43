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
  bytes.resize(readInto(bytes).size());
  if (bytes.empty())
    return std::nullopt;
  return Data(std::move(bytes));
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
