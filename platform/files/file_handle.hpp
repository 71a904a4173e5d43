#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "platform/files/file_descriptor.hpp"

namespace platform {

/// An open file; the destructor closes it. Failures are thrown as `SystemError`.
class NSFileHandle {
 public:
  /// Opens for reading from the start of the file. Throws `Error` for a FIFO or device.
  static NSFileHandle fileHandleForReadingFromURL(const URL& url);
  /// Opens an existing file for writing from its start, without truncating it.
  static NSFileHandle fileHandleForWritingToURL(const URL& url);
  /// /dev/null, for reading and writing.
  static NSFileHandle fileHandleWithNullDevice();

  /// Fills `buffer` with the next bytes and returns them; fewer at the end of the file, then none. The
  /// caller's buffer saves allocating and clearing memory for each chunk.
  std::string_view readInto(std::span<char> buffer);

  /// Closes now. The handle must not be used afterwards.
  void closeAndReturnError();

  const FileDescriptor& descriptor() const noexcept { return descriptor_; }

 private:
  NSFileHandle(const URL& url, FileDescriptor descriptor)
      : path_(url.path()), descriptor_(std::move(descriptor)) {}

  std::string path_;
  FileDescriptor descriptor_;
};

}  // namespace platform
