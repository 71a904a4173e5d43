#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>

#include "platform/foundation/file_rename.hpp"
#include "platform/foundation/system_call.hpp"

namespace platform {
namespace {

int renameWithFlags(const DirectoryEntryName& from, const DirectoryEntryName& to, unsigned flags) {
  const int result = uninterrupted([&] {
    return ::renameat2(from.directory.get(), from.name.c_str(), to.directory.get(), to.name.c_str(), flags);
  });
  return result == 0 ? 0 : errno;
}

/// Kernel or file system do not know the flag. EINVAL has other meanings too, which a call without flags
/// shows again.
bool meansUnsupported(int errorNumber) {
  return errorNumber == EINVAL || errorNumber == ENOSYS || errorNumber == ENOTSUP;
}

}  // namespace

int renameExclusively(const DirectoryEntryName& from, const DirectoryEntryName& to) {
  const int failure = renameWithFlags(from, to, RENAME_NOREPLACE);
  if (!meansUnsupported(failure))
    return failure;
  struct stat status {};
  if (::fstatat(to.directory.get(), to.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
    return EEXIST;
  if (errno != ENOENT)
    return errno;
  return renameWithFlags(from, to, 0);
}

int exchangeNames(const DirectoryEntryName& one, const DirectoryEntryName& other) {
  const int failure = renameWithFlags(one, other, RENAME_EXCHANGE);
  return meansUnsupported(failure) ? ENOTSUP : failure;
}

}  // namespace platform
