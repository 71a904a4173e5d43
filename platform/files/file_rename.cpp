#include <cerrno>
#include <optional>

#include "platform/files/system_files.hpp"

namespace platform {
namespace {

/// FUSE and network file systems may rename and still report an error. Retrying an exchange would undo it,
/// and cleaning up would remove the wrong item, so inodes are compared.
int rename(const Entry& from, const Entry& to, RenameMode mode) {
  const std::optional<FileIdentity> item = from.identity();
  if (!item)
    return errno;
  const bool isElsewhere = to.identity() != item;
  const auto isMade = [&] { return isElsewhere && to.identity() == item; };
  while (true) {
    const int failure = renameOnce(from, to, mode);
    if (failure == 0 || isMade())
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
  const int failure = rename(from, to, RenameMode::exclusive);
  if (!meansUnsupported(failure))
    return failure;
  if (to.identity())
    return EEXIST;
  if (errno != ENOENT)
    return errno;
  return rename(from, to, RenameMode::replacing);
}

int exchangeNames(const Entry& one, const Entry& other) {
  const int failure = rename(one, other, RenameMode::exchanging);
  return meansUnsupported(failure) ? ENOTSUP : failure;
}

}  // namespace platform
