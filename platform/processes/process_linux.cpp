#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <csignal>

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

void ProcessInfo::secureStandardStreams() {
  for (int stream = 0; stream < 3; ++stream) {
    if (::fcntl(stream, F_GETFD) >= 0)
      continue;
    // open() returns the lowest free descriptor, the stream's own. Without /dev/null, an O_PATH descriptor
    // holds its place; if that fails too, nothing is left to try.
    if (::open("/dev/null", O_RDWR | O_NOCTTY) < 0)
      static_cast<void>(::open("/", O_PATH | O_DIRECTORY));
  }
  // Cannot fail for these signals.
  static_cast<void>(::signal(SIGPIPE, SIG_IGN));
  static_cast<void>(::signal(SIGXFSZ, SIG_IGN));
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
