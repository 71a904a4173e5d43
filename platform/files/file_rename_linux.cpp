#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <optional>

#include "platform/files/file_rename.hpp"

namespace platform {
namespace {

struct ItemIdentity {
  dev_t device;
  ino_t number;

  friend bool operator==(const ItemIdentity&, const ItemIdentity&) = default;
};

/// Which item has the name. None, with the reason in `errno`, where none has it or the system does not tell.
std::optional<ItemIdentity> identityOf(const DirectoryEntryName& entry) {
  struct stat status {};
  if (::fstatat(entry.directory.get(), entry.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
    return std::nullopt;
  return ItemIdentity{status.st_dev, status.st_ino};
}

/// A file system in user space or on another machine may make a change and report it as failed or
/// interrupted. To repeat an exchange would then undo it, and to clean up would remove the wrong item: what
/// the names stand for decides.
int renameWithFlags(const DirectoryEntryName& from, const DirectoryEntryName& to, unsigned flags) {
  const std::optional<ItemIdentity> item = identityOf(from);
  if (!item)
    return errno;
  const bool isElsewhere = identityOf(to) != item;
  const auto isMade = [&] { return isElsewhere && identityOf(to) == item; };
  while (true) {
    if (::renameat2(from.directory.get(), from.name.c_str(), to.directory.get(), to.name.c_str(), flags) == 0)
      return 0;
    const int failure = errno;
    if (isMade())
      return 0;
    if (failure != EINTR || identityOf(from) != item)
      return failure;
  }
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
