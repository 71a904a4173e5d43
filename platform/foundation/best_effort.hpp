#pragma once

#include <utility>

namespace platform {

/// Runs `step` and ignores any exception.
template <typename Step>
void bestEffort(Step&& step) noexcept {
  try {
    std::forward<Step>(step)();
  } catch (...) {
    // Best effort: the caller goes on as if the step had succeeded.
  }
}

/// Runs a clean-up step, as a best effort, when its scope is left by a return or an exception.
template <typename Step>
class ScopeExit {
 public:
  explicit ScopeExit(Step step) : step_(std::move(step)) {}
  ScopeExit(const ScopeExit&) = delete;
  ScopeExit& operator=(const ScopeExit&) = delete;
  ~ScopeExit() { bestEffort(step_); }

 private:
  Step step_;
};

}  // namespace platform
