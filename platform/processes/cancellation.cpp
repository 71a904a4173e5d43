#include "platform/processes/cancellation.hpp"

#include <utility>

namespace platform {
namespace {

thread_local const Task* currentTask = nullptr;

}  // namespace

CancellationError::CancellationError() : Error("The operation was cancelled.") {}

Task::Scope::Scope(const Task& task) noexcept : outer_(std::exchange(currentTask, &task)) {}

Task::Scope::~Scope() {
  currentTask = outer_;
}

bool Task::isCancelled() noexcept {
  return currentTask != nullptr && currentTask->cancelled_.load();
}

void Task::checkCancellation() {
  if (isCancelled())
    throw CancellationError();
}

}  // namespace platform
