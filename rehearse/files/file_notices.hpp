#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/files/file_descriptor.hpp"

namespace rehearse {

/// What the kernel says happened in a watched directory, with the fields and bits of `inotify_event` of
/// inotify(7).
struct FileNotice {
  int directory = 0;         ///< as `watch` returned it
  std::uint32_t events = 0;  ///< IN_OPEN, IN_CREATE, ...
  std::uint32_t cookie = 0;  ///< the same for the two names of a rename
  std::string name;          ///< empty for the directory itself
};

/// Notices of events in directories, in the order of the events. They queue until they are taken, so that
/// none is lost to a reader that is late.
class FileNotices {
 public:
  /// Throws `platform::Error`, as `watch` does, naming the limit if one of the user's limits is reached.
  FileNotices();

  /// Watches the names in a directory from now on for some events, bits as in `FileNotice`. A directory is
  /// watched once.
  int watch(const std::filesystem::path& directory, std::uint32_t events);
  /// The same, or nothing where there is no such directory.
  std::optional<int> tryWatch(const std::filesystem::path& directory, std::uint32_t events);

  /// Those that are queued, without waiting. Throws `platform::Error` if the kernel had to drop some.
  std::vector<FileNotice> take();

  /// For poll(2): readable while notices are queued.
  int descriptor() const noexcept { return queue_.get(); }

 private:
  platform::FileDescriptor queue_;
};

}  // namespace rehearse
