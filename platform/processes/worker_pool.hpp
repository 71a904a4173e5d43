#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace platform {

/// Runs jobs on threads of its own, in the order of their submission, with a bounded queue. After a failure
/// no further job is started; of several failures, that of the job submitted first is reported.
///
/// One thread submits; jobs must not submit jobs.
class WorkerPool {
 public:
  using Job = std::function<void()>;

  /// For work that keeps processors busy: a thread per processor, up to 16.
  WorkerPool();
  /// Where the system provides fewer threads, the pool works with those. Without any, `submit` runs the job.
  WorkerPool(std::size_t threads, std::size_t longestQueue);
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;
  /// Drops the jobs that have not started and waits for the others. Failures are ignored.
  ~WorkerPool();

  /// Queues the job; blocks while the queue is full. Throws what a job has thrown.
  void submit(Job job);

  /// Waits until all jobs have ended and been destroyed. Throws what a job has thrown.
  void finish();

 private:
  struct Submitted {
    std::uint64_t number;
    Job job;
  };

  void work() noexcept;
  void stop() noexcept;
  void end(std::uint64_t number, std::exception_ptr failure);

  std::size_t longestQueue_;
  std::mutex mutex_;
  std::condition_variable jobAdded_;
  std::condition_variable jobTaken_;
  std::condition_variable allEnded_;
  std::deque<Submitted> queue_;
  std::uint64_t submitted_ = 0;
  std::size_t running_ = 0;
  bool stopping_ = false;
  std::exception_ptr failure_;
  std::uint64_t failedNumber_ = 0;
  std::vector<std::thread> threads_;
};

}  // namespace platform
