#pragma once

#include <sys/types.h>

namespace rehearse {

/// The source of a FUSE mount that a thread of the process serves whose private mount it is.
inline constexpr const char* kServedDisk = "quorin-rehearsal-disk";

/// Breaks the connections of such mounts of a process that is to be killed: what reads or writes there fails
/// from now on. Otherwise its death may wait in the kernel for an answer of its own, before the end of the
/// connection that would give it. Does nothing where that is refused.
void abandonDisksOf(pid_t process);

}  // namespace rehearse
