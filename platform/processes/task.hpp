#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/files/file_handle.hpp"
#include "platform/files/url.hpp"
#include "platform/processes/spawn.hpp"

namespace platform {

/// A child process. It starts with the caller's environment and working directory, default signal
/// dispositions, no blocked signals, and no descriptors but the three standard streams. If it still runs, the
/// destructor kills and reaps it.
///
/// On Linux, "/usr/bin/hdiutil", "/usr/bin/ditto" and "/usr/bin/open" are looked up in libexec/quorin of the
/// installation that the calling program belongs to; the host's programs of those names are never run.
class NSTask {
 public:
  void setExecutableURL(const URL& url) { executable_ = url; }
  void setArguments(std::vector<std::string> arguments) { arguments_ = std::move(arguments); }
  /// All three must be set before the launch. The caller owns the handles and keeps them open until then.
  void setStandardInput(const NSFileHandle& handle) { standardStreams_[0] = &handle; }
  void setStandardOutput(const NSFileHandle& handle) { standardStreams_[1] = &handle; }
  void setStandardError(const NSFileHandle& handle) { standardStreams_[2] = &handle; }

  /// To be called once. Returns once the program executes. Throws `SystemError` if it cannot be started.
  void launchAndReturnError();

  /// Whether the process still runs; false before the launch.
  bool isRunning() { return process_ && process_->isRunning(); }

  /// Sends SIGTERM to the process unless it has ended.
  void terminate();

  /// Blocks until the process has ended.
  void waitUntilExit();

  /// The process identifier; valid until the process has been found ended.
  std::int32_t processIdentifier() const { return process_.value().identifier(); }

  /// The exit status, or the number of the signal that ended the process. Valid once it has been found ended.
  std::int32_t terminationStatus() const { return process_.value().status(); }

 private:
  std::optional<URL> executable_;
  std::vector<std::string> arguments_;
  std::array<const NSFileHandle*, 3> standardStreams_{};
  std::optional<ChildProcess> process_;
};

}  // namespace platform
