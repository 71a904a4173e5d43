#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/files/file_descriptor.hpp"
#include "platform/hdiutil/child_program.hpp"
#include "platform/hdiutil/disk.hpp"
#include "platform/hdiutil/udif.hpp"

namespace platform::hdiutil {

/// The disk in an image of the universal format. It is unpacked once, from front to back, while it is read.
/// Bytes that are read or passed over on the way to others are kept in a temporary file; bytes that are taken
/// or skipped are not. All checksums are verified on the way; `finish` throws unless they match.
class UdifDisk : public Disk {
 public:
  /// Starts 7-Zip on the image. The temporary file is an unlinked file in `directory`.
  UdifDisk(FileDescriptor image, UdifImage description, const FileDescriptor& directory);

  using Disk::read;
  std::uint64_t size() const override { return description_.diskSize; }
  void read(std::uint64_t offset, std::span<char> buffer) override;
  void take(std::uint64_t offset, std::span<char> buffer) override;
  void skip(std::uint64_t offset) override;
  void finish() override;

 protected:
  std::uint64_t storedLength(std::uint64_t offset, std::uint64_t length) const override;

 private:
  struct Pipe {
    FileDescriptor reader;
    FileDescriptor writer;
  };
  /// A run, or a gap between block tables. `endedTable` is the table whose last run it is, or null.
  struct Stretch {
    UdifRun run;
    bool isUnpacked;
    bool startsTable;
    const UdifTable* endedTable;
  };
  struct Interval {
    std::uint64_t begin;
    std::uint64_t end;
  };

  static Pipe makePipe();
  void layOut();
  [[noreturn]] void damaged(const char* reason);
  void storeUpTo(std::uint64_t offset);
  /// How many of the bytes from `begin` to `end` are stored, where `stretch` starts at `position`.
  std::uint64_t storedBetween(std::uint64_t begin, std::uint64_t end, std::size_t stretch,
                              std::uint64_t position) const;
  void markTaken(std::uint64_t begin);
  std::uint64_t stretchLeft() const;
  void next(std::span<char> buffer);
  void unpack(std::span<char> buffer);
  void check(std::span<const char> bytes);
  void endStretch();
  void checkStoredBytes(std::uint64_t most);
  void requireKept(std::uint64_t begin, std::uint64_t end) const;

  FileDescriptor image_;
  UdifImage description_;
  FileDescriptor kept_;
  Pipe pipe_;
  ChildProgram unpacker_;
  std::vector<Stretch> stretches_;
  std::size_t stretch_ = 0;
  std::uint64_t stretchDone_ = 0;
  std::uint64_t frontier_ = 0;  ///< how much of the disk has been unpacked
  std::vector<Interval> taken_;
  std::vector<char> chunk_;
  std::vector<char> storedChunk_;
  std::uint32_t tableChecksum_ = 0;
  std::uint32_t dataChecksum_ = 0;
  std::uint64_t dataChecked_ = 0;
  const char* damage_ = nullptr;  ///< remembered in case the reader ignores the exception
};

}  // namespace platform::hdiutil
