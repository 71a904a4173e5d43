#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files/file_descriptor.hpp"

namespace rehearse {

struct DiskWrite {
  std::uint64_t offset = 0;
  std::string bytes;
};

/// What a disk was asked to do, in order, in a file: its bytes may be more than fits into memory. For one
/// thread at a time. Operations throw `platform::Error`.
class DiskHistory {
 public:
  /// Creates `file`, which must not exist, for an empty history.
  static DiskHistory create(const std::filesystem::path& file);
  /// Reads what another history has written to `file`.
  static DiskHistory open(const std::filesystem::path& file);

  /// `bytes` is not empty.
  void addWrite(std::uint64_t offset, std::string_view bytes);
  void addFlush();

  std::size_t writes() const { return extents_.size(); }
  /// How many bytes a write has.
  std::uint64_t sizeOf(std::size_t write) const { return extents_.at(write).size; }
  std::uint64_t offsetOf(std::size_t write) const { return extents_.at(write).offset; }
  DiskWrite write(std::size_t index) const;

  /// For each flush of the disk's cache, how many writes had been made. A disk may lose or reorder those
  /// behind the latest flush, and no others.
  const std::vector<std::size_t>& flushes() const { return flushes_; }

 private:
  struct Extent {
    std::uint64_t offset;
    std::uint64_t size;
    std::uint64_t place;  ///< of the bytes, in the file
  };

  DiskHistory(const std::filesystem::path& file, int flags);

  void append(std::string_view bytes);
  void read(std::uint64_t place, char* bytes, std::size_t count) const;

  std::string name_;
  platform::FileDescriptor file_;
  std::uint64_t size_ = 0;  ///< of the file
  std::vector<Extent> extents_;
  std::vector<std::size_t> flushes_;
};

}  // namespace rehearse
