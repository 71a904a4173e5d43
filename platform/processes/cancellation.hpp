#pragma once

#include <atomic>

#include "platform/foundation/error.hpp"

namespace platform {

/// Thrown where a cancelled task stops.
class CancellationError : public Error {
 public:
  CancellationError();
};

/// A unit of work that can be cancelled. While a `Scope` exists, it is the task of the thread that made the
/// scope; a thread without a scope has no task and is never cancelled.
class Task {
 public:
  Task() = default;
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;

  /// Cancels the task permanently; callable from any thread.
  void cancel() noexcept { cancelled_.store(true); }

  /// Makes a task the calling thread's until the scope ends, which restores the previous one. The task must
  /// outlive the scope.
  class Scope {
   public:
    explicit Scope(const Task& task) noexcept;
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    ~Scope();

   private:
    const Task* outer_;
  };

  /// True when the calling thread's task was cancelled.
  static bool isCancelled() noexcept;

  /// Throws `CancellationError` when the calling thread's task was cancelled.
  static void checkCancellation();

 private:
  std::atomic<bool> cancelled_ = false;
};

}  // namespace platform
