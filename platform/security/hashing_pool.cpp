#include "platform/security/hashing_pool.hpp"

#include <algorithm>
#include <system_error>
#include <utility>

namespace platform {
namespace {

constexpr unsigned kMostThreads = 16;
constexpr std::size_t kMostWaiting = 256;

}  // namespace

HashingPool::HashingPool() {
  const unsigned processors = std::min(std::thread::hardware_concurrency(), kMostThreads);
  // With one processor the caller does the work itself, as it does where no thread can be had.
  try {
    while (processors > 1 && threads_.size() < processors)
      threads_.emplace_back([this] { work(); });
  } catch (const std::system_error&) {
    // Fewer threads do the same work.
  }
}

HashingPool::~HashingPool() {
  {
    const std::lock_guard lock(mutex_);
    waiting_.clear();
    ended_ = true;
  }
  workWaits_.notify_all();
  for (std::thread& thread : threads_)
    thread.join();
}

void HashingPool::submit(Step step) {
  if (threads_.empty()) {
    step();
    return;
  }
  {
    std::unique_lock lock(mutex_);
    workDone_.wait(lock, [this] { return waiting_.size() < kMostWaiting || failure_; });
    if (failure_) {
      lock.unlock();
      finish();
    }
    waiting_.push_back({submitted_++, std::move(step)});
  }
  workWaits_.notify_one();
}

void HashingPool::finish() {
  std::unique_lock lock(mutex_);
  workDone_.wait(lock, [this] { return running_ == 0 && waiting_.empty(); });
  if (failure_)
    std::rethrow_exception(failure_);
}

void HashingPool::work() {
  std::unique_lock lock(mutex_);
  while (true) {
    workWaits_.wait(lock, [this] { return ended_ || !waiting_.empty(); });
    if (ended_)
      return;
    const Numbered next = std::move(waiting_.front());
    waiting_.pop_front();
    ++running_;
    lock.unlock();
    run(next);
    lock.lock();
    --running_;
    workDone_.notify_all();
  }
}

void HashingPool::run(const Numbered& numbered) noexcept {
  {
    const std::lock_guard lock(mutex_);
    // What was submitted before a failure may fail too, and would be the one to report.
    if (failure_ && failureNumber_ < numbered.number)
      return;
  }
  try {
    numbered.step();
  } catch (...) {
    const std::lock_guard lock(mutex_);
    if (!failure_ || numbered.number < failureNumber_) {
      failure_ = std::current_exception();
      failureNumber_ = numbered.number;
    }
  }
}

}  // namespace platform
