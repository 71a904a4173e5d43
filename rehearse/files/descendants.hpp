#pragma once

#include <sys/types.h>

#include <vector>

namespace rehearse {

/// The children of a process at this moment, of all its threads; none when it is gone.
std::vector<pid_t> childrenOf(pid_t process);

/// The process itself and everything below it at this moment.
std::vector<pid_t> descendantsOf(pid_t process);

/// Kills and reaps the children of this process until there are none. A process that adopts orphans ends with
/// that everything that it has started.
void endAllChildren();

}  // namespace rehearse
