#include "platform/processes/worker_pool.hpp"

#include <algorithm>
#include <utility>

namespace platform {
namespace {

constexpr std::size_t kMostThreads = 16;
constexpr std::size_t kLongestQueue = 256;

/// On a single processor a thread would only take turns with the submitter.
std::size_t threadsForProcessors() {
  const std::size_t processors = std::thread::hardware_concurrency();
  return processors > 1 ? std::min(processors, kMostThreads) : 0;
}

}  // namespace

WorkerPool::WorkerPool() : WorkerPool(threadsForProcessors(), kLongestQueue) {}

WorkerPool::WorkerPool(std::size_t threads, std::size_t longestQueue) : longestQueue_(longestQueue) {
  threads_.reserve(threads);
  try {
    while (threads_.size() < threads)
      threads_.emplace_back([this] { work(); });
  } catch (const std::exception&) {
    // A limit on threads or memory: the existing threads do the work.
  }
}

WorkerPool::~WorkerPool() {
  stop();
  for (std::thread& thread : threads_)
    thread.join();
}

void WorkerPool::stop() noexcept {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    queue_.clear();
  }
  jobAdded_.notify_all();
}

void WorkerPool::submit(Job job) {
  if (threads_.empty())
    return job();
  {
    std::unique_lock lock(mutex_);
    jobTaken_.wait(lock, [this] { return queue_.size() < longestQueue_ || failure_; });
    if (!failure_) {
      queue_.push_back({submitted_++, std::move(job)});
      lock.unlock();
      jobAdded_.notify_one();
      return;
    }
  }
  finish();
}

void WorkerPool::finish() {
  std::unique_lock lock(mutex_);
  allEnded_.wait(lock, [this] { return running_ == 0 && queue_.empty(); });
  if (failure_)
    std::rethrow_exception(failure_);
}

void WorkerPool::work() noexcept {
  std::unique_lock lock(mutex_);
  while (true) {
    jobAdded_.wait(lock, [this] { return !queue_.empty() || stopping_; });
    if (stopping_)
      return;
    auto [number, job] = std::move(queue_.front());
    queue_.pop_front();
    ++running_;
    lock.unlock();
    jobTaken_.notify_one();
    std::exception_ptr failure;
    try {
      job();
    } catch (...) {
      failure = std::current_exception();
    }
    job = nullptr;  // finish() promises that what the job owned is gone
    lock.lock();
    end(number, std::move(failure));
  }
}

void WorkerPool::end(std::uint64_t number, std::exception_ptr failure) {
  --running_;
  // Jobs start in the order of submission: those submitted before this one have started already, and queued
  // ones come later.
  if (failure && (!failure_ || number < failedNumber_)) {
    failure_ = std::move(failure);
    failedNumber_ = number;
    queue_.clear();
    jobTaken_.notify_all();
  }
  if (running_ == 0 && queue_.empty())
    allEnded_.notify_all();
}

}  // namespace platform
