#pragma once

#include <sys/types.h>

namespace rehearse {

/// The source of a FUSE mount that a thread of the process serves whose private mount it is.
inline constexpr const char* kServedDisk = "quorin-rehearsal-disk";

/// Breaks the connections of such mounts of a process that was killed. Its threads end one by one: one that
/// waits in the kernel for the server's answer cannot end, and keeps the connection open, for which it waits.
/// Does nothing where that is refused.
void abandonDisksOf(pid_t process);

}  // namespace rehearse
