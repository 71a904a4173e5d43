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
/// dispositions, no blocked signal, and no descriptor but the three standard streams. If it still runs at the
/// end of the object's life, it is killed and collected.
///
/// The platform's tools "/usr/bin/hdiutil", "/usr/bin/ditto" and "/usr/bin/open" are those of the
/// installation that the program belongs to, in its libexec/quorin; the host's programs of those names are
/// never run.
class NSTask {
 public:
  void setExecutableURL(const URL& url) { executable_ = url; }
  void setArguments(std::vector<std::string> arguments) { arguments_ = std::move(arguments); }
  /// The caller keeps the handles, which must be open at the launch. All three must be set before it.
  void setStandardInput(const NSFileHandle& handle) { standardStreams_[0] = &handle; }
  void setStandardOutput(const NSFileHandle& handle) { standardStreams_[1] = &handle; }
  void setStandardError(const NSFileHandle& handle) { standardStreams_[2] = &handle; }

  /// Returns once the program executes. Throws `SystemError` when it cannot be started. Once per object.
  void launchAndReturnError();

  /// True until the process has ended.
  bool isRunning() { return process_ && process_->isRunning(); }

  /// Sends SIGTERM to the process unless it has ended.
  void terminate();

  void waitUntilExit();

  /// The process identifier; refers to this process until it has been found ended.
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
