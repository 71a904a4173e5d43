#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace sign_bundle {

/// Calls `body` with every index below `count`, on all cores. The first failure ends the work and is thrown.
template <typename Body>
void forEachIndexInParallel(std::size_t count, const Body& body) {
  std::atomic<std::size_t> next = 0;
  std::exception_ptr failure;
  std::mutex failureMutex;
  const auto work = [&] {
    try {
      for (std::size_t index = next++; index < count; index = next++)
        body(index);
    } catch (...) {
      next = count;
      const std::lock_guard lock(failureMutex);
      if (!failure)
        failure = std::current_exception();
    }
  };
  const std::size_t workers = std::min<std::size_t>(count, std::max(1U, std::thread::hardware_concurrency()));
  std::vector<std::thread> threads;
  for (std::size_t worker = 1; worker < workers; ++worker)
    threads.emplace_back(work);
  work();
  for (std::thread& thread : threads)
    thread.join();
  if (failure)
    std::rethrow_exception(failure);
}

}  // namespace sign_bundle
