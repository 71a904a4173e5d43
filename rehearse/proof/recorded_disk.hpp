#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/files/file_descriptor.hpp"
#include "rehearse/proof/reversible_file.hpp"

namespace rehearse {

struct DiskWrite {
  std::uint64_t offset = 0;
  std::string bytes;
};

/// What a disk was asked to do, in order.
struct DiskHistory {
  std::vector<DiskWrite> writes;
  /// For each flush of the disk's cache, how many writes had been made. A disk may lose or reorder those
  /// behind the latest flush, and no others.
  std::vector<std::size_t> flushes;
};

/// A file for a loop device, which shows every write and every flush that a file system makes: a FUSE mount
/// whose root is a regular file (fuse(4), linux/fuse.h), served by a thread of this process. A loop device
/// passes a flush on as fsync.
class RecordedDisk {
 public:
  /// Mounts `content` on the regular file `path`. Throws `std::system_error` where the system refuses it.
  /// Until the end of this object, `content` is this one's.
  RecordedDisk(ReversibleFile& content, std::filesystem::path path);
  RecordedDisk(const RecordedDisk&) = delete;
  RecordedDisk& operator=(const RecordedDisk&) = delete;
  /// Unmounts it. Writes of one who still uses it then fail.
  ~RecordedDisk();

  const std::filesystem::path& path() const { return path_; }
  /// How many writes have been made.
  std::size_t writes() const;
  /// All of that, once.
  DiskHistory takeHistory();

 private:
  void serve();
  void answer(std::string_view request);
  void reply(std::uint64_t request, int error, std::string_view body = {}) const;
  void write(std::uint64_t offset, std::string_view bytes);
  void flush();

  ReversibleFile& content_;
  std::filesystem::path path_;
  platform::FileDescriptor device_;
  mutable std::mutex mutex_;  ///< of the history
  DiskHistory history_;
  std::atomic<bool> ends_ = false;
  std::thread server_;
};

}  // namespace rehearse
