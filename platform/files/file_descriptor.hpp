#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
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
  /// Opens for reading without blocking. Rejects anything but files and directories: a FIFO or device may
  /// never reach its end.
  static FileDescriptor openForReading(const URL& url);
  /// The same as `open` for `name` below `directory`.
  static FileDescriptor openAt(const FileDescriptor& directory, const std::string& name, int flags,
                               unsigned mode = 0);

  /// The same without throwing: not open, with `errno`, on failure.
  static FileDescriptor tryOpenAt(const FileDescriptor& directory, const std::string& name, int flags,
                                  unsigned mode = 0) noexcept;

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

  /// Fills `buffer` from `offset` on and returns the number of bytes, fewer only at the end of the file.
  /// Nothing, with `errno`, on failure.
  [[nodiscard]] std::optional<std::size_t> readAt(std::uint64_t offset,
                                                  std::span<char> buffer) const noexcept;
  /// Writes all of `bytes` from `offset` on. False, with `errno`, on failure.
  [[nodiscard]] bool writeAt(std::uint64_t offset, std::span<const char> bytes) const noexcept;

 private:
  int descriptor_ = -1;
};

/// What was written through `file` is on stable storage afterwards. Throws `SystemError` naming `item`.
void syncFile(const FileDescriptor& file, std::string_view item);

/// The names in `directory` are on stable storage afterwards, as far as its file system offers that.
void syncDirectory(const FileDescriptor& directory, std::string_view item);

/// Everything on the file system that contains `anyFileOnIt` is on stable storage afterwards.
void syncFileSystem(const FileDescriptor& anyFileOnIt, std::string_view item);

/// The path of `url` for a system call. Throws `SystemError` for a path that contains a null character, where
/// the system would silently cut it.
const char* systemPath(const URL& url);

}  // namespace platform
