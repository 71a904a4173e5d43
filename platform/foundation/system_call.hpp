#pragma once

#include <cerrno>

namespace platform {

/// Repeats a system call that reports failure by -1 until no signal interrupts it.
/// Not for `close`, which has let go of the descriptor even when it was interrupted.
template <typename Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR)
    result = call();
  return result;
}

}  // namespace platform
