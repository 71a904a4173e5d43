#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <optional>

#include "platform/files/directory.hpp"

namespace platform {
namespace {

/// FUSE and network file systems may rename and still report an error. Retrying an exchange would undo it,
/// and cleaning up would remove the wrong item, so inodes are compared.
int renameWithFlags(const Entry& from, const Entry& to, unsigned flags) {
  const std::optional<FileIdentity> item = from.identity();
  if (!item)
    return errno;
  const bool isElsewhere = to.identity() != item;
  const auto isMade = [&] { return isElsewhere && to.identity() == item; };
  while (true) {
    if (::renameat2(from.directory.get(), from.name.c_str(), to.directory.get(), to.name.c_str(), flags) == 0)
      return 0;
    const int failure = errno;
    if (isMade())
      return 0;
    if (failure != EINTR || from.identity() != item)
      return failure;
  }
}

/// The kernel or the file system does not support the flag. EINVAL has other causes too, which a call without
/// flags reports again.
bool meansUnsupported(int errorNumber) {
  return errorNumber == EINVAL || errorNumber == ENOSYS || errorNumber == ENOTSUP;
}

}  // namespace

int renameExclusively(const Entry& from, const Entry& to) {
  const int failure = renameWithFlags(from, to, RENAME_NOREPLACE);
  if (!meansUnsupported(failure))
    return failure;
  if (to.identity())
    return EEXIST;
  if (errno != ENOENT)
    return errno;
  return renameWithFlags(from, to, 0);
}

int exchangeNames(const Entry& one, const Entry& other) {
  const int failure = renameWithFlags(one, other, RENAME_EXCHANGE);
  return meansUnsupported(failure) ? ENOTSUP : failure;
}

}  // namespace platform
