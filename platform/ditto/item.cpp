#include "platform/ditto/item.hpp"

#include <fcntl.h>

#include "platform/foundation/error.hpp"
#include "platform/foundation/system_call.hpp"

namespace platform::ditto {
namespace {

struct stat checked(int result, const struct stat& status, const std::string& path) {
  if (result != 0)
    throw SystemError(quoted(path) + " could not be examined", errno);
  return status;
}

bool sameTime(const timespec& left, const timespec& right) {
  return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

}  // namespace

struct stat statusOf(const Item& item) {
  struct stat status {};
  const int result = ::fstatat(item.directory.get(), item.name.c_str(), &status, AT_SYMLINK_NOFOLLOW);
  return checked(result, status, item.path);
}

struct stat statusOf(const FileDescriptor& file, const std::string& path) {
  struct stat status {};
  const int result = ::fstat(file.get(), &status);
  return checked(result, status, path);
}

FileDescriptor openItem(const Item& item, int flags) {
  // Without blocking: what was a file a moment ago may be a pipe without a writer now.
  FileDescriptor opened(uninterrupted([&] {
    return ::openat(item.directory.get(), item.name.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  }));
  if (!opened.isOpen())
    throw SystemError(quoted(item.path) + " could not be opened", errno);
  return opened;
}

void requireUnchanged(const FileDescriptor& file, const struct stat& before, const std::string& path) {
  const struct stat after = statusOf(file, path);
  if (after.st_size != before.st_size || !sameTime(after.st_mtim, before.st_mtim))
    throw Error(quoted(path) + " changed while it was being copied.");
}

}  // namespace platform::ditto
