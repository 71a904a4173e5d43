#pragma once

#include <chrono>
#include <compare>

namespace platform {

/// A moment, for deadlines. The default is now. The clock behind it runs evenly, whatever the wall clock is
/// set to meanwhile, and stands still while the machine sleeps.
class Date {
 public:
  Date() : time_(std::chrono::steady_clock::now()) {}

  /// The moment `seconds` later, or earlier for a negative number; clamped to what the clock can express.
  Date addingTimeInterval(double seconds) const;

  auto operator<=>(const Date&) const =
      default;  // NOLINT(modernize-use-nullptr): mistaken for a null pointer

 private:
  std::chrono::steady_clock::time_point time_;
};

}  // namespace platform
