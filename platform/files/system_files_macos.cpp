#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "platform/files/system_files.hpp"
#include "platform/foundation/error.hpp"

namespace platform {

int renameOnce(const Entry& from, const Entry& to, RenameMode mode) noexcept {
  static constexpr std::array<unsigned, 3> kFlags{0, RENAME_EXCL, RENAME_SWAP};
  if (::renameatx_np(from.directory.get(), from.name.c_str(), to.directory.get(), to.name.c_str(),
                     kFlags.at(static_cast<std::size_t>(mode))) == 0)
    return 0;
  // Two numbers on this system; file systems return either.
  return errno == EOPNOTSUPP ? ENOTSUP : errno;
}

FileDescriptor openItself(const Entry& entry) {
  // O_SYMLINK opens a link itself; O_NOFOLLOW would refuse it.
  FileDescriptor opened =
      FileDescriptor::tryOpenAt(entry.directory.descriptor(), entry.name, O_EVTONLY | O_SYMLINK | O_NONBLOCK);
  if (!opened.isOpen())
    throw SystemError(quoted(entry.path()) + " could not be opened", errno);
  return opened;
}

bool isRefusedAsDirectory(const FileDescriptor& directory, const std::string& name,
                          int errorNumber) noexcept {
  // POSIX requires EPERM, which has other causes too.
  struct stat status {};
  return (errorNumber == EPERM || errorNumber == EISDIR) &&
         ::fstatat(directory.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISDIR(status.st_mode);
}

void dropFromCache(const FileDescriptor&) noexcept {
  // The system has no such advice for pages that are already cached.
}

}  // namespace platform
