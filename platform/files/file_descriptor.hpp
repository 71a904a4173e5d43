#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/files/url.hpp"

namespace platform {

/// The sole owner of a file descriptor; the destructor closes it.
class FileDescriptor {
 public:
  FileDescriptor() noexcept = default;
  explicit FileDescriptor(int descriptor) noexcept : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept;
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor();

  /// Opens `url` with the flags of `open(2)` and close-on-exec. Throws `SystemError` naming the item.
  static FileDescriptor open(const URL& url, int flags, unsigned mode = 0);
  /// Opens for reading without blocking. Throws `Error` for anything but files and directories: a FIFO or
  /// device may never reach EOF.
  static FileDescriptor openForReading(const URL& url);
  /// The same for `name` relative to `directory`.
  static FileDescriptor openAt(const FileDescriptor& directory, const std::string& name, int flags,
                               unsigned mode = 0);

  /// The same without throwing: not open, with `errno`, on failure.
  static FileDescriptor tryOpenAt(const FileDescriptor& directory, const std::string& name, int flags,
                                  unsigned mode = 0) noexcept;

  int get() const noexcept { return descriptor_; }
  bool isOpen() const noexcept { return descriptor_ >= 0; }

  /// Gives up ownership; the caller closes the descriptor.
  int release() noexcept;

  /// Closes now. Throws `SystemError` if the system reports that written data was lost; the descriptor is
  /// closed all the same. `item` names the file in messages, here and below.
  void close(std::string_view item);

  /// Reads up to `capacity` bytes at the current position and returns their number, 0 at the end of the file.
  /// Throws `SystemError`.
  std::size_t read(void* buffer, std::size_t capacity, std::string_view item) const;

  /// Writes all of `bytes` at the current position. Throws `SystemError`.
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

/// Syncs a file's content and attributes to stable storage. Throws `SystemError` naming the item, as do the
/// two below.
void syncFile(const FileDescriptor& file, std::string_view item);

/// Syncs the names in `directory`, if its file system supports that.
void syncDirectory(const FileDescriptor& directory, std::string_view item);

/// Syncs the file or tree `item` with everything in it, whichever process wrote it. `directory` contains it.
void syncTree(const FileDescriptor& directory, const URL& item);

/// The path of `url` for a system call, valid as long as `url`. Throws `SystemError` if it contains a null
/// character, at which the system would silently truncate it.
const char* systemPath(const URL& url);

}  // namespace platform
