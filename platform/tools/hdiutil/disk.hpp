#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/foundation/file_descriptor.hpp"

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

  /// Looks at all that was not read. Only when this returns, every byte that was handed out is known to be
  /// good.
  virtual void finish() = 0;

  /// A file that holds just the bytes from `offset` on, open for reading; its size is `length`. What has to
  /// be made for it lies in `directory` and goes with the descriptor.
  virtual FileDescriptor file(std::uint64_t offset, std::uint64_t length, const FileDescriptor& directory);

 protected:
  void requireInside(std::uint64_t offset, std::uint64_t length) const;
};

/// An image that is the disk itself, byte by byte.
class RawDisk : public Disk {
 public:
  explicit RawDisk(FileDescriptor image);

  using Disk::read;
  std::uint64_t size() const override { return size_; }
  void read(std::uint64_t offset, std::span<char> buffer) override;
  void take(std::uint64_t offset, std::span<char> buffer) override { read(offset, buffer); }
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

/// Throws `ImageError` unless `length` more bytes fit on the file system that holds `directory`.
void requireSpace(const FileDescriptor& directory, std::uint64_t length);

/// Reads or writes the whole buffer at an offset. A file that ends earlier gives zeros.
void readAt(const FileDescriptor& file, std::uint64_t offset, std::span<char> buffer);
void writeAt(const FileDescriptor& file, std::uint64_t offset, std::span<const char> bytes);

}  // namespace platform::hdiutil
