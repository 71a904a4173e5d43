#pragma once

namespace platform {

/// The calling thread.
class NSThread {
 public:
  /// Blocks the calling thread for `seconds`, through interruptions by signals; returns at once for 0 or
  /// less.
  static void sleepForTimeInterval(double seconds);
};

}  // namespace platform
