#pragma once

#include <utility>

namespace platform {

/// Runs a step whose failure changes nothing for the caller and is dropped, whatever it is.
template <typename Step>
void bestEffort(Step&& step) noexcept {
  try {
    std::forward<Step>(step)();
  } catch (...) {
    // What the caller is about matters more than this step.
  }
}

}  // namespace platform
