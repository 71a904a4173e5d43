#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/files/file_handle.hpp"
#include "platform/files/url.hpp"

namespace platform {

/// A child process. It starts with the caller's environment and working directory, default signal
/// dispositions, no blocked signal, and no descriptor but the three standard streams. It belongs to this
/// object: one that still runs at the end of the object's life is killed and collected.
///
/// The platform's tools "/usr/bin/hdiutil", "/usr/bin/ditto" and "/usr/bin/open" are those of the
/// installation that the program belongs to, in its libexec/quorin; what the host has under those names is
/// never run.
class NSTask {
 public:
  NSTask() = default;
  NSTask(const NSTask&) = delete;
  NSTask& operator=(const NSTask&) = delete;
  ~NSTask();

  void setExecutableURL(const URL& url) { executable_ = url; }
  void setArguments(std::vector<std::string> arguments) { arguments_ = std::move(arguments); }
  /// The handles stay the caller's; they are open at the launch. All three are set before it.
  void setStandardInput(const NSFileHandle& handle) { standardStreams_[0] = &handle; }
  void setStandardOutput(const NSFileHandle& handle) { standardStreams_[1] = &handle; }
  void setStandardError(const NSFileHandle& handle) { standardStreams_[2] = &handle; }

  /// The program executes when this returns. Throws `SystemError` when it cannot be started; once per object.
  void launchAndReturnError();

  /// True until the process has ended.
  bool isRunning();

  /// Asks the process to end, by SIGTERM; does nothing when it has.
  void terminate();

  void waitUntilExit();

  /// The system's identifier of the process; its own until the process has been found ended.
  std::int32_t processIdentifier() const noexcept { return processIdentifier_; }

  /// The exit status, or the number of the signal that ended the process. Valid once it has been found ended.
  std::int32_t terminationStatus() const noexcept { return terminationStatus_; }

 private:
  enum class State { notLaunched, running, ended };

  bool collect(int waitOptions);

  std::optional<URL> executable_;
  std::vector<std::string> arguments_;
  std::array<const NSFileHandle*, 3> standardStreams_{};
  State state_ = State::notLaunched;
  std::int32_t processIdentifier_ = 0;
  std::int32_t terminationStatus_ = 0;
};

}  // namespace platform
