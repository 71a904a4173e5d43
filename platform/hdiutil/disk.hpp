#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/files/file_descriptor.hpp"

namespace platform::hdiutil {

/// The bytes of a disk, from its first sector on, whatever they are stored in. Reading outside of the disk,
/// or what turns out to be damaged, is an `ImageError`.
class Disk {
 public:
  Disk() = default;
  Disk(const Disk&) = delete;
  Disk& operator=(const Disk&) = delete;
  virtual ~Disk() = default;

  /// In bytes.
  virtual std::uint64_t size() const = 0;

  /// Fills `buffer` from `offset` on.
  virtual void read(std::uint64_t offset, std::span<char> buffer) = 0;
  std::string read(std::uint64_t offset, std::uint64_t length);

  /// The same for bytes that are not read again. Cheapest in the order of the disk.
  virtual void take(std::uint64_t offset, std::span<char> buffer) = 0;

  /// Nothing before `offset` is read again.
  virtual void skip(std::uint64_t offset) = 0;

  /// Looks at all that was not read, after which nothing can be read. Only when this returns, every byte that
  /// was read is known to be good.
  virtual void finish() = 0;

  /// A file that contains just the bytes from `offset` on, open for reading; its size is `length`. A copy
  /// that has to be made for it is in `directory`, without a name.
  virtual FileDescriptor file(std::uint64_t offset, std::uint64_t length, const FileDescriptor& directory);

 protected:
  void requireInside(std::uint64_t offset, std::uint64_t length) const;

  /// At most so many of these bytes are not zero. Known without reading them.
  virtual std::uint64_t storedLength(std::uint64_t /*offset*/, std::uint64_t length) const { return length; }
};

/// An image that is the disk itself, byte by byte.
class RawDisk : public Disk {
 public:
  explicit RawDisk(FileDescriptor image);

  using Disk::read;
  std::uint64_t size() const override { return size_; }
  void read(std::uint64_t offset, std::span<char> buffer) override;
  void take(std::uint64_t offset, std::span<char> buffer) override { read(offset, buffer); }
  void skip(std::uint64_t) override {}
  void finish() override {}
  FileDescriptor file(std::uint64_t offset, std::uint64_t length, const FileDescriptor& directory) override;

 private:
  FileDescriptor image_;
  std::uint64_t size_;
};

/// The size in bytes of an open file.
std::uint64_t sizeOf(const FileDescriptor& file);

/// A new file in `directory` that has no name any more, open for reading and writing.
FileDescriptor namelessFile(const FileDescriptor& directory);

/// Throws `ImageLimitError` unless `length` more bytes fit on the file system of `directory`, which may be
/// any file on it, in `items` files and folders, each of which fills whole blocks.
void requireSpace(const FileDescriptor& directory, std::uint64_t length, std::uint64_t items = 1);

bool isZero(std::span<const char> bytes);

/// Reads or writes the whole buffer at an offset, what is beyond the end of the file as zeros. Throws
/// `SystemError`.
void readAt(const FileDescriptor& file, std::uint64_t offset, std::span<char> buffer);
void writeAt(const FileDescriptor& file, std::uint64_t offset, std::span<const char> bytes);

}  // namespace platform::hdiutil
