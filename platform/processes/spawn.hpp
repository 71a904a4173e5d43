#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/files/url.hpp"

namespace platform {

enum class Session { inherited, own };

/// How a program is started.
struct SpawnRequest {
  URL executable;
  std::vector<std::string> arguments;  ///< without the program's name
  /// The descriptors that become 0, 1 and 2; each is that number already or greater than 2. The caller keeps
  /// ownership.
  std::array<int, 3> standardStreams;
  Session session = Session::inherited;
  std::string workingDirectory = {};  ///< empty: the caller's
  /// As "NAME=VALUE"; absent: `inheritedEnvironment()`.
  std::optional<std::vector<std::string>> environment = {};
  /// The program is killed when the calling thread ends (PR_SET_PDEATHSIG), and thus when this process ends.
  /// On macOS, `spawn` refuses this with `ENOTSUP`.
  bool diesWithParent = false;
};

/// Starts a program with default signal dispositions, no blocked signals and no descriptors but its standard
/// streams. Returns its process identifier once it executes, without a time limit. The caller's standard
/// streams must be open. Callable from any thread. Throws `SystemError` if the program cannot be executed;
/// then no process remains.
std::int32_t spawn(const SpawnRequest& request);

/// A child process. If it still runs, the destructor kills and reaps it.
class ChildProcess {
 public:
  /// Starts the program as `spawn` does. If SIGCHLD is ignored, its default disposition is restored first.
  explicit ChildProcess(const SpawnRequest& request);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  /// Whether the process still runs; reaps it otherwise.
  bool isRunning();

  /// Blocks until the process has ended.
  void wait();

  /// The process identifier; valid until the process has been reaped.
  std::int32_t identifier() const noexcept { return identifier_; }

  /// The exit status, or the number of the signal that ended the process; valid once it has been reaped.
  std::int32_t status() const noexcept { return status_; }

 private:
  bool collect(int waitOptions);

  std::int32_t identifier_;
  std::int32_t status_ = 0;
  bool hasEnded_ = false;
};

}  // namespace platform
