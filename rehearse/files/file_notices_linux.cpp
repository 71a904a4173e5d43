#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "platform/foundation/error.hpp"
#include "rehearse/files/file_notices.hpp"

namespace rehearse {
namespace {

constexpr std::size_t kBufferSize = 16384;

/// The errors for a limit would be read as that of open files, or of the disk.
[[noreturn]] void throwNotWatched(int errorNumber, int errorOfLimit, const char* limit) {
  if (errorNumber == errorOfLimit)
    throw platform::Error(std::string("Files cannot be watched: this user has reached the limit ") + limit +
                          ".");
  throw platform::SystemError("Files cannot be watched", errorNumber);
}

/// Appends the notices in `bytes`, which the kernel ends at the end of one.
void append(std::vector<FileNotice>& notices, std::string_view bytes) {
  while (bytes.size() >= sizeof(inotify_event)) {
    inotify_event event{};
    std::memcpy(&event, bytes.data(), sizeof event);
    bytes.remove_prefix(sizeof event);
    if ((event.mask & IN_Q_OVERFLOW) != 0)
      throw platform::Error(
          "The system dropped notices of files: fs.inotify.max_queued_events is too small.");
    const std::string_view padded = bytes.substr(0, event.len);
    bytes.remove_prefix(padded.size());
    notices.push_back({event.wd, event.mask, event.cookie, std::string(padded.substr(0, padded.find('\0')))});
  }
}

}  // namespace

FileNotices::FileNotices() : queue_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (!queue_.isOpen())
    throwNotWatched(errno, EMFILE, "fs.inotify.max_user_instances");
}

int FileNotices::watch(const std::filesystem::path& directory, std::uint32_t events) {
  const auto watched = tryWatch(directory, events);
  if (!watched)
    throwNotWatched(errno, ENOSPC, "fs.inotify.max_user_watches");
  return *watched;
}

std::optional<int> FileNotices::tryWatch(const std::filesystem::path& directory, std::uint32_t events) {
  const int watched = ::inotify_add_watch(queue_.get(), directory.c_str(), events | IN_ONLYDIR);
  if (watched >= 0)
    return watched;
  if (errno != ENOENT && errno != ENOTDIR)
    throwNotWatched(errno, ENOSPC, "fs.inotify.max_user_watches");
  return std::nullopt;
}

std::vector<FileNotice> FileNotices::take() {
  std::vector<FileNotice> notices;
  std::array<char, kBufferSize> buffer;
  while (true) {
    const auto length =
        platform::uninterrupted([&] { return ::read(queue_.get(), buffer.data(), buffer.size()); });
    if (length < 0 && errno == EAGAIN)
      return notices;
    if (length <= 0)
      throw platform::SystemError("Notices of files could not be read", errno);
    append(notices, {buffer.data(), static_cast<std::size_t>(length)});
  }
}

}  // namespace rehearse
