#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files/directory_enumerator.hpp"
#include "platform/files/file_descriptor.hpp"
#include "platform/foundation/error.hpp"

namespace platform {
namespace {

[[noreturn]] void throwNotSaved(std::string_view item, int errorNumber) {
  throw SystemError(quoted(item) + " could not be saved to the disk", errorNumber);
}

/// Writes to the drive, which may still hold in its cache what it was given.
int write(const FileDescriptor& file) {
  return uninterrupted([&] { return ::fsync(file.get()); }) == 0 ? 0 : errno;
}

/// Has the drive empty its cache too; as `write` where the file system does not offer that.
int flush(const FileDescriptor& file) {
  if (uninterrupted([&] { return ::fcntl(file.get(), F_FULLFSYNC); }) != -1)
    return 0;
  const bool isUnsupported = errno == ENOTSUP || errno == EOPNOTSUPP || errno == ENOTTY || errno == EINVAL;
  return isUnsupported ? write(file) : errno;
}

/// Returns whether the item is a directory. Links and special files have no content of their own.
bool writeItem(const URL& item) {
  struct stat status {};
  if (::lstat(systemPath(item), &status) != 0)
    throwNotSaved(item.path(), errno);
  const bool isDirectory = S_ISDIR(status.st_mode);
  if (!isDirectory && !S_ISREG(status.st_mode))
    return false;
  const int failure = write(FileDescriptor::open(item, O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
  if (failure != 0 && !(isDirectory && failure == EINVAL))
    throwNotSaved(item.path(), failure);
  return isDirectory;
}

}  // namespace

void syncFile(const FileDescriptor& file, std::string_view item) {
  if (const int failure = flush(file))
    throwNotSaved(item, failure);
}

void syncDirectory(const FileDescriptor& directory, std::string_view item) {
  // EINVAL: the file system keeps no directory that could be synced by itself.
  if (const int failure = flush(directory); failure != 0 && failure != EINVAL)
    throwNotSaved(item, failure);
}

void syncTree(const FileDescriptor& directory, const URL& item) {
  // A flush empties the whole cache of the drive: one is enough, and one for each file would take minutes.
  if (writeItem(item)) {
    NSDirectoryEnumerator entries(item, DirectoryEnumerationOptions::none);
    while (const auto entry = entries.nextObject())
      writeItem(*entry);
  }
  syncDirectory(directory, item.path());
}

}  // namespace platform
