#include <fcntl.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "platform/files/system_files.hpp"

namespace platform {

int renameOnce(const Entry& from, const Entry& to, RenameMode mode) noexcept {
  static constexpr std::array<unsigned, 3> kFlags{0, RENAME_NOREPLACE, RENAME_EXCHANGE};
  return ::renameat2(from.directory.get(), from.name.c_str(), to.directory.get(), to.name.c_str(),
                     kFlags.at(static_cast<std::size_t>(mode))) == 0
             ? 0
             : errno;
}

FileDescriptor openItself(const Entry& entry) {
  return entry.open(O_PATH);
}

// Not EPERM, which refuses to remove the item at all: such a directory must not be emptied.
bool isRefusedAsDirectory(const FileDescriptor&, const std::string&, int errorNumber) noexcept {
  return errorNumber == EISDIR;
}

void dropFromCache(const FileDescriptor& file) noexcept {
  // Advice only: if it fails, the pages remain cached.
  static_cast<void>(::posix_fadvise(file.get(), 0, 0, POSIX_FADV_DONTNEED));
}

}  // namespace platform
