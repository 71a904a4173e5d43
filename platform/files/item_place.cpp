#include "platform/files/item_place.hpp"

#include <fcntl.h>

#include <cerrno>

#include "platform/foundation/error.hpp"

namespace platform {

ItemPlace placeOf(const URL& url) {
  systemPath(url);
  const URL standard = url.standardizedFileURL();
  std::string name = standard.lastPathComponent();
  if (name.empty() || name == "/" || name == "." || name == "..")
    throw SystemError(quoted(url.path()) + " is no item in a directory", EINVAL);
  return {FileDescriptor::open(standard.deletingLastPathComponent(), O_RDONLY | O_DIRECTORY),
          std::move(name)};
}

}  // namespace platform
