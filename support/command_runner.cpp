#include "support/command_runner.hpp"

#include <utility>

#include "platform/files/file_handle.hpp"
#include "platform/files/file_manager.hpp"
#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/date.hpp"
#include "platform/foundation/uuid.hpp"
#include "platform/processes/cancellation.hpp"
#include "platform/processes/process.hpp"
#include "platform/processes/task.hpp"

namespace QuorinSupport::CommandRunner {
namespace {

using platform::bestEffort;
using platform::Data;
using platform::Date;
using platform::DirectoryAccess;
using platform::IntermediateDirectories;
using platform::NSFileHandle;
using platform::NSFileManager;
using platform::NSTask;
using platform::NSThread;
using platform::Task;
using platform::URL;
using platform::UUID;

constexpr double kPollInterval = 0.02;
constexpr double kGracePeriod = 1.0;

/// A private directory for one run; its destructor removes it.
class CaptureDirectory {
 public:
  CaptureDirectory()
      : url_(manager_.temporaryDirectory().appendingPathComponent("QuorinCommand-" + UUID().uuidString())) {
    manager_.createDirectoryAtURL(url_, IntermediateDirectories::yes, DirectoryAccess::ownerOnly);
  }
  CaptureDirectory(const CaptureDirectory&) = delete;
  CaptureDirectory& operator=(const CaptureDirectory&) = delete;
  ~CaptureDirectory() {
    bestEffort([this] { manager_.removeItemAtURL(url_); });
  }

  const URL& url() const { return url_; }

 private:
  const NSFileManager& manager_ = NSFileManager::defaultManager();
  URL url_;
};

/// The files for a tool's output. The destructor closes them and removes their directory.
class Capture {
 public:
  Capture()
      : outputURL_(newFile("stdout")),
        errorURL_(newFile("stderr")),
        output_(NSFileHandle::fileHandleForWritingToURL(outputURL_)),
        error_(NSFileHandle::fileHandleForWritingToURL(errorURL_)) {}
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;
  ~Capture() {
    // The output has been read or is not needed.
    bestEffort([this] { output_.closeAndReturnError(); });
    bestEffort([this] { error_.closeAndReturnError(); });
  }

  void connect(NSTask& task) const {
    task.setStandardOutput(output_);
    task.setStandardError(error_);
  }

  CommandResult resultWith(std::int32_t status) const {
    Data output = Data::contentsOf(outputURL_);
    return {status, std::move(output), Data::contentsOf(errorURL_)};
  }

 private:
  URL newFile(std::string_view name) const {
    URL url = directory_.url().appendingPathComponent(name);
    // If this fails, opening the file reports it.
    static_cast<void>(NSFileManager::defaultManager().createFileAtPath(url.path()));
    return url;
  }

  CaptureDirectory directory_;
  URL outputURL_;
  URL errorURL_;
  NSFileHandle output_;
  NSFileHandle error_;
};

bool endsWithin(NSTask& task, const Date& deadline) {
  while (task.isRunning()) {
    if (Task::isCancelled() || Date() >= deadline)
      return false;
    NSThread::sleepForTimeInterval(kPollInterval);
  }
  return true;
}

void stop(NSTask& task) {
  task.terminate();
  const Date endOfGrace = Date().addingTimeInterval(kGracePeriod);
  while (task.isRunning() && Date() < endOfGrace)
    NSThread::sleepForTimeInterval(kPollInterval);
  // Fails only when the process has ended already.
  if (task.isRunning())
    static_cast<void>(platform::kill(task.processIdentifier(), platform::kSignalKill));
  task.waitUntilExit();
}

}  // namespace

Failure Failure::timedOut(const std::string& toolName) {
  return Failure(toolName + " did not finish in time.");
}

CommandResult run(const std::string& executable, const std::vector<std::string>& arguments, double timeout) {
  Task::checkCancellation();
  const Capture capture;
  const NSFileHandle input = NSFileHandle::fileHandleWithNullDevice();

  NSTask task;
  task.setExecutableURL(URL::fileURLWithPath(executable));
  task.setArguments(arguments);
  task.setStandardInput(input);
  capture.connect(task);
  task.launchAndReturnError();

  if (!endsWithin(task, Date().addingTimeInterval(timeout))) {
    stop(task);
    Task::checkCancellation();
    throw Failure::timedOut(URL::fileURLWithPath(executable).lastPathComponent());
  }
  task.waitUntilExit();
  return capture.resultWith(task.terminationStatus());
}

}  // namespace QuorinSupport::CommandRunner
