#include "platform/foundation/date.hpp"

namespace platform {

Date::Date() : time_(std::chrono::steady_clock::now()) {}

}  // namespace platform
