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
  std::vector<std::string> arguments;  ///< without the program's own name
  /// Descriptors for 0, 1 and 2, each either that number itself or greater than 2. The caller keeps them.
  std::array<int, 3> standardStreams;
  Session session = Session::inherited;
  std::string workingDirectory = {};  ///< empty: the caller's
  /// As "NAME=VALUE"; absent: `inheritedEnvironment()`.
  std::optional<std::vector<std::string>> environment = {};
  /// The system kills the program when the calling thread ends, and thus whenever this process ends.
  bool diesWithParent = false;
};

/// Starts a program with default signal dispositions, no blocked signal and no descriptor but its standard
/// streams, and returns its process identifier once it executes; there is no time limit for that. The
/// caller's standard streams must be open. Throws `SystemError` when the program cannot be executed; then no
/// process remains.
std::int32_t spawn(const SpawnRequest& request);

/// A program that this one started. If it still runs at the end of the object's life, it is killed and
/// collected.
class ChildProcess {
 public:
  /// Starts the program as `spawn` does.
  explicit ChildProcess(const SpawnRequest& request);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  /// True until the process has ended.
  bool isRunning();

  /// Blocks until the process has ended.
  void wait();

  /// The process identifier; refers to this process until it has been found ended.
  std::int32_t identifier() const noexcept { return identifier_; }

  /// The exit status, or the number of the signal that ended the process. Valid once it has been found ended.
  std::int32_t status() const noexcept { return status_; }

 private:
  bool collect(int waitOptions);

  std::int32_t identifier_;
  std::int32_t status_ = 0;
  bool hasEnded_ = false;
};

}  // namespace platform
