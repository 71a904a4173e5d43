#pragma once

#include <chrono>
#include <compare>

namespace platform {

/// A point in time, for deadlines; now by default. Its clock is monotonic: changes of the wall clock do not
/// affect it, and it does not advance during suspend.
class Date {
 public:
  Date();

  /// The time `seconds` later, or earlier for a negative number; clamped to the clock's range.
  Date addingTimeInterval(double seconds) const;

  auto operator<=>(const Date&) const =
      default;  // NOLINT(modernize-use-nullptr): mistaken for a null pointer

 private:
  std::chrono::steady_clock::time_point time_;
};

}  // namespace platform
