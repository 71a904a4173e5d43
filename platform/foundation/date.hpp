#pragma once

#include <chrono>
#include <compare>

namespace platform {

/// A moment of the wall clock. The default is now.
class Date {
 public:
  Date() : time_(std::chrono::system_clock::now()) {}

  /// The moment `seconds` later, or earlier for a negative number; clamped to what the clock can express.
  Date addingTimeInterval(double seconds) const;

  auto operator<=>(const Date&) const =
      default;  // NOLINT(modernize-use-nullptr): mistaken for a null pointer

 private:
  std::chrono::system_clock::time_point time_;
};

}  // namespace platform
