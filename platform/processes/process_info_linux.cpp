#include <fcntl.h>
#include <unistd.h>

#include <csignal>

#include "platform/files/data.hpp"
#include "platform/processes/process_info.hpp"

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
    // The lowest free number is the stream's own. Without a null device, anything that cannot be read or
    // written does; and where even that fails, there is nothing left to try.
    if (::open("/dev/null", O_RDWR | O_NOCTTY) < 0)
      static_cast<void>(::open("/", O_PATH | O_DIRECTORY));
  }
  // Both are known signals, so that this cannot fail.
  static_cast<void>(::signal(SIGPIPE, SIG_IGN));
  static_cast<void>(::signal(SIGXFSZ, SIG_IGN));
}

}  // namespace platform
