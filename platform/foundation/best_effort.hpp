#pragma once

#include <utility>

namespace platform {

/// Runs a step whose failure does not matter to the caller. Any exception is dropped.
template <typename Step>
void bestEffort(Step&& step) noexcept {
  try {
    std::forward<Step>(step)();
  } catch (...) {
    // What the caller is about matters more than this step.
  }
}

/// Runs a clean-up step when its scope is left, by a return or an exception, as a best effort.
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
