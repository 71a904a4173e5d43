#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "platform/files/file_descriptor.hpp"
#include "rehearse/proof/disk_history.hpp"
#include "rehearse/proof/reversible_file.hpp"

namespace rehearse {

/// A file for a loop device, which shows every write and every flush that a file system makes: a FUSE mount
/// whose root is a regular file (fuse(4), linux/fuse.h), served by a thread of this process. A loop device
/// passes a flush on as fsync.
class RecordedDisk {
 public:
  /// Mounts `content` on the regular file `path`, and adds to `history`, if there is one, what happens to it.
  /// Throws `platform::SystemError` where the system refuses it. Until the end of this object, both are this
  /// one's.
  RecordedDisk(ReversibleFile& content, std::filesystem::path path, DiskHistory* history = nullptr);
  RecordedDisk(const RecordedDisk&) = delete;
  RecordedDisk& operator=(const RecordedDisk&) = delete;
  /// Unmounts it. Writes of one who still uses it then fail.
  ~RecordedDisk();

  const std::filesystem::path& path() const { return path_; }
  /// How many writes are in the history. Throws `platform::Error` when it lacks one.
  std::size_t writes() const;

 private:
  void serve();
  void answer(std::string_view request);
  void reply(std::uint64_t request, int error, std::string_view body = {}) const;
  /// Adds an entry to the history, or remembers why it is not there.
  void record(const std::function<void(DiskHistory&)>& add);

  ReversibleFile& content_;
  std::filesystem::path path_;
  platform::FileDescriptor device_;
  mutable std::mutex mutex_;  ///< of the two below
  DiskHistory* history_;
  std::string failure_;  ///< what kept the first missing entry out of the history
  std::atomic<bool> ends_ = false;
  std::thread server_;
};

}  // namespace rehearse
