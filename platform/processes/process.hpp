#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/files/url.hpp"

namespace platform {

/// The calling process.
class ProcessInfo {
 public:
  /// Every argument, the program's name first. Throws `SystemError` when the system does not provide them.
  static std::vector<std::string> arguments();

  /// To be called before anything is opened or written. Opens closed standard streams on /dev/null, so that
  /// no other file gets their descriptors, and ignores SIGPIPE and SIGXFSZ, so that a write to a pipe without
  /// a reader or past a size limit fails instead of ending the process.
  static void secureStandardStreams();
};

/// The calling thread.
class NSThread {
 public:
  /// Blocks for `seconds`, even if interrupted by signals; returns at once for 0 or less.
  static void sleepForTimeInterval(double seconds);
};

/// On Linux, the installation that the running program belongs to: the directory two levels above its
/// executable, at its current path. Throws `SystemError` when the system does not provide that.
URL installationPrefix();

/// The program to run for `executable`: for the path of one of the platform's tools, where this system has
/// it.
URL toolLocation(const URL& executable);

inline constexpr int kSignalKill = 9;
inline constexpr int kNotPermitted = 1;

/// Sends `signal` to a process; 0 only checks whether it exists. Returns 0 or the error number, which is
/// `kNotPermitted` for a process that exists but belongs to another user.
int kill(std::int32_t processIdentifier, int signal) noexcept;

/// Makes the calling process the leader of a new session, unless it leads a process group already.
void setsid() noexcept;

}  // namespace platform
