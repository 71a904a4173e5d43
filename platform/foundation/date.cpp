#include "platform/foundation/date.hpp"

namespace platform {

Date Date::addingTimeInterval(double seconds) const {
  using Clock = std::chrono::steady_clock;
  using Seconds = std::chrono::duration<double>;
  const double sum = Seconds(time_.time_since_epoch()).count() + seconds;
  Date moved = *this;
  if (!(sum < Seconds(Clock::duration::max()).count()))
    moved.time_ = Clock::time_point::max();
  else if (sum <= Seconds(Clock::duration::min()).count())
    moved.time_ = Clock::time_point::min();
  else
    moved.time_ += std::chrono::duration_cast<Clock::duration>(Seconds(seconds));
  return moved;
}

}  // namespace platform
