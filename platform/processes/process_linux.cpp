#include <unistd.h>

#include <array>
#include <climits>

#include "platform/files/data.hpp"
#include "platform/foundation/error.hpp"
#include "platform/processes/process.hpp"

namespace platform {

std::vector<std::string> ProcessInfo::arguments() {
  const Data commandLine = Data::contentsOf(URL::fileURLWithPath("/proc/self/cmdline"));
  std::vector<std::string> arguments;
  std::string_view rest = commandLine.bytes();
  while (!rest.empty()) {
    const auto end = rest.find('\0');
    arguments.emplace_back(rest.substr(0, end));
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
  return arguments;
}

URL installationPrefix() {
  std::array<char, PATH_MAX> path{};
  const auto length = uninterrupted([&] { return ::readlink("/proc/self/exe", path.data(), path.size()); });
  if (length < 0)
    throw SystemError("The program's own executable could not be found", errno);
  const std::string_view executable(path.data(), static_cast<std::size_t>(length));
  return URL::fileURLWithPath(executable).deletingLastPathComponent().deletingLastPathComponent();
}

URL toolLocation(const URL& executable) {
  for (const std::string_view tool : {"hdiutil", "ditto", "open"}) {
    if (executable.path() == "/usr/bin/" + std::string(tool))
      return installationPrefix().appendingPathComponent("libexec/quorin").appendingPathComponent(tool);
  }
  return executable;
}

}  // namespace platform
