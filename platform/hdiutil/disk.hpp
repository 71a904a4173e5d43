#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/files/file_descriptor.hpp"

namespace platform::hdiutil {

/// The bytes of a disk, independent of how an image stores them. All operations throw `ImageError` for an
/// access outside of the disk and for damage, and `SystemError`. Only one thread may use it.
class Disk {
 public:
  Disk() = default;
  Disk(const Disk&) = delete;
  Disk& operator=(const Disk&) = delete;
  virtual ~Disk() = default;

  /// In bytes.
  virtual std::uint64_t size() const = 0;

  /// Fills `buffer` with the bytes at `offset`.
  virtual void read(std::uint64_t offset, std::span<char> buffer) = 0;
  std::string read(std::uint64_t offset, std::uint64_t length);

  /// The same, but these bytes must not be read again. Cheapest in the order of the disk.
  virtual void take(std::uint64_t offset, std::span<char> buffer) = 0;

  /// Promises that no bytes before `offset` are read again.
  virtual void skip(std::uint64_t offset) = 0;

  /// Reads the rest and verifies all checksums; only when it returns are the bytes read before known to be
  /// intact. Afterwards the disk must not be read.
  virtual void finish() = 0;

  /// A file, open for reading, that contains exactly the `length` bytes at `offset`. If a copy is necessary,
  /// it is an unlinked file in `directory`.
  virtual FileDescriptor file(std::uint64_t offset, std::uint64_t length, const FileDescriptor& directory);

 protected:
  void requireInside(std::uint64_t offset, std::uint64_t length) const;

  /// An upper bound for how many of these bytes are not zero, without reading them.
  virtual std::uint64_t storedLength(std::uint64_t /*offset*/, std::uint64_t length) const { return length; }
};

/// An image that contains the disk byte by byte.
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

/// A new, unlinked file in `directory`, open for reading and writing. Throws `SystemError`.
FileDescriptor namelessFile(const FileDescriptor& directory);

/// Throws `ImageLimitError` unless `length` more bytes in `items` files and folders, each of which takes
/// whole blocks, fit on the file system of `directory`, which may also be a file.
void requireSpace(const FileDescriptor& directory, std::uint64_t length, std::uint64_t items = 1);

/// The sum of two sizes that a volume states, or the largest number where that is smaller.
std::uint64_t saturatingSum(std::uint64_t one, std::uint64_t other);

bool isZero(std::span<const char> bytes);

/// Reads or writes the whole buffer at an offset; reads zeros beyond the end of the file. Throws
/// `SystemError`.
void readAt(const FileDescriptor& file, std::uint64_t offset, std::span<char> buffer);
void writeAt(const FileDescriptor& file, std::uint64_t offset, std::span<const char> bytes);

}  // namespace platform::hdiutil
