#pragma once

#include <utility>

#include "platform/foundation/best_effort.hpp"

namespace platform {

/// Runs a clean-up step when its scope is left, whichever way. A failure of the step is dropped.
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
