#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace platform {

/// Threads that work off steps of a check, as many as there are processors for this program. At most a fixed
/// number of steps waits, so that memory stays bounded however much there is to do.
class HashingPool {
 public:
  /// A step throws to say that what it checked is not as it should be.
  using Step = std::function<void()>;

  HashingPool();
  HashingPool(const HashingPool&) = delete;
  HashingPool& operator=(const HashingPool&) = delete;
  /// Drops the steps that wait.
  ~HashingPool();

  /// Has the step done, sooner or later; waits while too many are waiting. Throws once a step has failed.
  void submit(Step step);

  /// Waits until every step is done. Throws what a step has thrown; of several the one that was submitted
  /// first.
  void finish();

 private:
  struct Numbered {
    std::uint64_t number;
    Step step;
  };

  void work();
  void run(const Numbered& numbered) noexcept;

  std::mutex mutex_;
  std::condition_variable workWaits_;
  std::condition_variable workDone_;
  std::deque<Numbered> waiting_;
  std::size_t running_ = 0;
  std::uint64_t submitted_ = 0;
  bool ended_ = false;
  std::exception_ptr failure_;
  std::uint64_t failureNumber_ = 0;
  std::vector<std::thread> threads_;
};

}  // namespace platform
