#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace platform::ditto {

/// Runs jobs on a few threads of its own. After the first failure no further job is begun. For one thread
/// that adds jobs; the jobs add none.
class WorkerPool {
 public:
  using Job = std::function<void()>;

  /// Where the system gives fewer threads, the pool makes do with them, and without any with the caller's.
  WorkerPool(std::size_t threads, std::size_t longestQueue);
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;
  /// Drops the jobs that have not begun and waits for those that have.
  ~WorkerPool();

  /// Waits while the queue is at its longest. Throws what a job has thrown.
  void add(Job job);

  /// Waits until every job has ended. Throws what a job has thrown.
  void wait();

 private:
  void work();
  void stop() noexcept;
  void end(std::exception_ptr failure);

  std::size_t longestQueue_;
  std::mutex mutex_;
  std::condition_variable jobAdded_;
  std::condition_variable jobTaken_;
  std::condition_variable jobEnded_;
  std::deque<Job> queue_;
  std::size_t running_ = 0;
  bool stopping_ = false;
  std::exception_ptr failure_;
  std::vector<std::thread> threads_;
};

}  // namespace platform::ditto
