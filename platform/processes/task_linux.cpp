#include <csignal>

#include "platform/processes/process.hpp"
#include "platform/processes/task.hpp"

namespace platform {
namespace {

URL locate(const URL& executable) {
  for (const std::string_view tool : {"hdiutil", "ditto", "open"}) {
    if (executable.path() == "/usr/bin/" + std::string(tool))
      return installationPrefix().appendingPathComponent("libexec/quorin").appendingPathComponent(tool);
  }
  return executable;
}

}  // namespace

void NSTask::launchAndReturnError() {
  process_.emplace(SpawnRequest{
      .executable = locate(executable_.value()),
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
