#include "platform/ditto/worker_pool.hpp"

#include <system_error>
#include <utility>

namespace platform::ditto {

WorkerPool::WorkerPool(std::size_t threads, std::size_t longestQueue) : longestQueue_(longestQueue) {
  threads_.reserve(threads);
  try {
    while (threads_.size() < threads)
      threads_.emplace_back([this] { work(); });
  } catch (const std::system_error&) {
    // The work is then done by fewer.
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

void WorkerPool::add(Job job) {
  if (threads_.empty())
    return job();
  {
    std::unique_lock lock(mutex_);
    jobTaken_.wait(lock, [this] { return queue_.size() < longestQueue_ || failure_; });
    if (failure_)
      std::rethrow_exception(failure_);
    queue_.push_back(std::move(job));
  }
  jobAdded_.notify_one();
}

void WorkerPool::wait() {
  std::unique_lock lock(mutex_);
  jobEnded_.wait(lock, [this] { return running_ == 0 && queue_.empty(); });
  if (failure_)
    std::rethrow_exception(failure_);
}

void WorkerPool::work() {
  std::unique_lock lock(mutex_);
  while (true) {
    jobAdded_.wait(lock, [this] { return !queue_.empty() || stopping_; });
    if (stopping_)
      return;
    Job job = std::move(queue_.front());
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
    job = nullptr;  // before the end is told: what the job owned is gone then
    lock.lock();
    end(failure);
  }
}

void WorkerPool::end(std::exception_ptr failure) {
  --running_;
  if (failure && !failure_) {
    failure_ = std::move(failure);
    queue_.clear();
    jobTaken_.notify_all();
  }
  if (running_ == 0)
    jobEnded_.notify_all();
}

}  // namespace platform::ditto
