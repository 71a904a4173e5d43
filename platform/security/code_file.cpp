#include "platform/security/code_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/foundation/error.hpp"

namespace platform {

CodeFile::CodeFile(const Entry& entry)
    : descriptor_(entry.open(O_RDONLY)),
      path_(entry.path()),
      status_(itemStatus(statusOf(descriptor_, path_))) {
  if (status_.kind != ItemKind::file)
    throw SystemError(platform::quoted(path_) + " is not a regular file", EINVAL);
}

void CodeFile::readAt(std::uint64_t offset, std::span<char> buffer) const {
  const std::optional<std::size_t> count = descriptor_.readAt(offset, buffer);
  if (!count)
    throw SystemError(platform::quoted(path_) + " could not be read", errno);
  if (*count < buffer.size())
    throw Error(platform::quoted(path_) + " became shorter while it was read.");
}

std::string CodeFile::content(std::uint64_t limit) const {
  if (size() > limit)
    throw Error(platform::quoted(path_) + " is too large.");
  return read(0, size());
}

}  // namespace platform
