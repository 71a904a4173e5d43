#pragma once

#include <cstdint>

namespace platform {

inline constexpr int kSignalKill = 9;
inline constexpr int kNotPermitted = 1;

/// Sends `signal` to the process, or with 0 only asks for it. Returns 0, or the reason as an error number,
/// which is `kNotPermitted` for a process that exists and may not be signalled.
int kill(std::int32_t processIdentifier, int signal) noexcept;

/// Makes the calling process the leader of a new session, unless it leads a process group already.
void setsid() noexcept;

}  // namespace platform
