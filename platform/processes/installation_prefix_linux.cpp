#include <unistd.h>

#include <array>
#include <climits>

#include "platform/foundation/error.hpp"
#include "platform/foundation/system_call.hpp"
#include "platform/processes/installation_prefix.hpp"

namespace platform {

URL installationPrefix() {
  std::array<char, PATH_MAX> path{};
  const auto length = uninterrupted([&] { return ::readlink("/proc/self/exe", path.data(), path.size()); });
  if (length < 0)
    throw SystemError("The program's own executable could not be found", errno);
  const std::string_view executable(path.data(), static_cast<std::size_t>(length));
  return URL::fileURLWithPath(executable).deletingLastPathComponent().deletingLastPathComponent();
}

}  // namespace platform
