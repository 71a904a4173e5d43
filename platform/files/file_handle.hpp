#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "platform/files/file_descriptor.hpp"

namespace platform {

/// An open file, closed at the end of its life at the latest. Failures are thrown as `SystemError`.
class NSFileHandle {
 public:
  /// Reads from the start of the file.
  static NSFileHandle fileHandleForReadingFromURL(const URL& url);
  /// Writes from the start of a file that exists.
  static NSFileHandle fileHandleForWritingToURL(const URL& url);
  /// Gives end of file at once, and swallows what is written.
  static NSFileHandle fileHandleWithNullDevice();

  /// The next bytes, as many as `buffer` takes; empty at the end of the file. They lie in `buffer`, which can
  /// be used again for the next ones: for large files, whose every chunk would otherwise be cleared before it
  /// is filled.
  std::string_view readInto(std::span<char> buffer);

  /// Closes now. Afterwards the handle is of no use.
  void closeAndReturnError();

  const FileDescriptor& descriptor() const noexcept { return descriptor_; }

 private:
  NSFileHandle(const URL& url, FileDescriptor descriptor)
      : path_(url.path()), descriptor_(std::move(descriptor)) {}

  std::string path_;
  FileDescriptor descriptor_;
};

}  // namespace platform
