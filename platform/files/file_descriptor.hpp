#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/files/url.hpp"

namespace platform {

/// The one owner of an open file descriptor, which it closes at the end of its life.
class FileDescriptor {
 public:
  FileDescriptor() noexcept = default;
  explicit FileDescriptor(int descriptor) noexcept : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept;
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor();

  /// Opens `path` with the flags of `open(2)` and close-on-exec; throws `SystemError` naming the item.
  static FileDescriptor open(const URL& url, int flags, unsigned mode = 0);
  /// Opens a file for reading, without waiting for anybody. What is neither a file nor a directory is
  /// refused: a pipe or a device might never come to its end.
  static FileDescriptor openForReading(const URL& url);
  /// The same as `open` for `name` below `directory`.
  static FileDescriptor openAt(const FileDescriptor& directory, const std::string& name, int flags,
                               unsigned mode = 0);

  int get() const noexcept { return descriptor_; }
  bool isOpen() const noexcept { return descriptor_ >= 0; }

  /// Gives the descriptor away; the caller closes it.
  int release() noexcept;

  /// Closes now. Throws `SystemError` where the system reports that written data was lost.
  void close(std::string_view item);

  /// At most `capacity` bytes from the current position; 0 at the end of the file.
  std::size_t read(void* buffer, std::size_t capacity, std::string_view item) const;

  /// Writes all of `bytes` at the current position.
  void writeAll(std::string_view bytes, std::string_view item) const;

 private:
  int descriptor_ = -1;
};

/// The path of `url` for a system call. Throws `SystemError` for a path that holds a null character, which
/// the system would silently cut there.
const char* systemPath(const URL& url);

}  // namespace platform
