#include <sys/stat.h>

#include <cerrno>
#include <ctime>

#include "platform/foundation/error.hpp"
#include "rehearse/proof/known_contents.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

/// More than the kernel's clock for the times of files takes from one time to the next.
constexpr std::int64_t kClockStep = 50'000'000;
/// Files of removed trees are never asked for again.
constexpr std::size_t kGreatestCount = 200'000;

std::int64_t nanoseconds(const timespec& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

Inventory KnownContents::inventory(const fs::path& root) {
  return rehearse::inventory(root, [this](const fs::path& file) { return contentOf(file); });
}

std::string KnownContents::contentOf(const fs::path& file) {
  struct stat status {};
  timespec now{};
  if (::lstat(file.c_str(), &status) != 0 || ::clock_gettime(CLOCK_REALTIME, &now) != 0)
    throw platform::SystemError(platform::quoted(file.native()) + " could not be examined", errno);
  const Identity identity{status.st_dev, status.st_ino, status.st_size, nanoseconds(status.st_mtim),
                          nanoseconds(status.st_ctim)};
  if (const auto found = known_.find(identity); found != known_.end())
    return found->second;
  std::string content = digestWhereLong(readFile(file));
  if (known_.size() >= kGreatestCount)
    known_.clear();
  if (nanoseconds(status.st_ctim) + kClockStep < nanoseconds(now))
    known_.emplace(identity, content);
  return content;
}

}  // namespace rehearse
