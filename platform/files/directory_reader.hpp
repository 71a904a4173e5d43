#pragma once

#include <dirent.h>

#include <cerrno>
#include <memory>
#include <string_view>

#include "platform/files/file_descriptor.hpp"

namespace platform {

/// Reads the entries of an open directory, in the file system's order.
class DirectoryReader {
 public:
  /// Starts at the current position of `directory` and takes ownership of it. If it is not open, the failure
  /// is the current `errno`.
  explicit DirectoryReader(FileDescriptor directory) noexcept
      : stream_(directory.isOpen() ? ::fdopendir(directory.get()) : nullptr), failure_(stream_ ? 0 : errno) {
    if (stream_)
      static_cast<void>(directory.release());  // the stream closes it
  }

  bool isOpen() const noexcept { return stream_ != nullptr; }

  /// The next entry except "." and "..", valid until the next call; null at the end and after a failure.
  const dirent* next() noexcept {
    while (stream_) {
      errno = 0;
      const dirent* entry = ::readdir(stream_.get());  // NOLINT(concurrency-mt-unsafe): an unshared stream
      if (entry == nullptr) {
        failure_ = errno;
        return nullptr;
      }
      const std::string_view name = static_cast<const char*>(entry->d_name);
      if (name != "." && name != "..")
        return entry;
    }
    return nullptr;
  }

  /// The error number of the failure that ended the reading, or 0.
  int failure() const noexcept { return failure_; }

 private:
  struct Close {
    void operator()(DIR* stream) const noexcept { ::closedir(stream); }
  };
  std::unique_ptr<DIR, Close> stream_;
  int failure_;
};

}  // namespace platform
