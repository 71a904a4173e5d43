#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/files/file_descriptor.hpp"
#include "platform/hdiutil/child_program.hpp"
#include "platform/hdiutil/disk.hpp"
#include "platform/hdiutil/udif.hpp"

namespace platform::hdiutil {

/// The disk in an image of the universal format. It is unpacked once, from front to back, while it is read:
/// what is passed over is kept in a temporary file, what is taken is not. Every checksum of the image is
/// verified on the way, and `finish` is what says that all of them held.
class UdifDisk : public Disk {
 public:
  /// The temporary file lies in `directory` without a name.
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
  /// A run or a gap between block tables, with the table whose last run it is.
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
  /// What is stored of the bytes from `begin` to `end`, counted from a stretch and its position on.
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
  const char* damage_ = nullptr;  ///< what was found, whether or not the reader went on
};

}  // namespace platform::hdiutil
