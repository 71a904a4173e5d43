#include "platform/processes/task.hpp"

#include <csignal>

#include "platform/processes/process.hpp"

namespace platform {

void NSTask::launchAndReturnError() {
  process_.emplace(SpawnRequest{
      .executable = toolLocation(executable_.value()),
      .arguments = arguments_,
      .standardStreams = {standardStreams_[0]->descriptor().get(), standardStreams_[1]->descriptor().get(),
                          standardStreams_[2]->descriptor().get()}});
}

void NSTask::terminate() {
  // Until the process is reaped, its identifier cannot be reused.
  if (isRunning())
    ::kill(process_->identifier(), SIGTERM);
}

void NSTask::waitUntilExit() {
  if (process_)
    process_->wait();
}

}  // namespace platform
