#include "platform/processes/thread.hpp"

#include <chrono>
#include <thread>

namespace platform {

void NSThread::sleepForTimeInterval(double seconds) {
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

}  // namespace platform
