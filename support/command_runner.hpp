#pragma once

#include <cstdint>
#include <cstdio>  // where it makes stdout and stderr macros, the members have one name in every source
#include <string>
#include <vector>

#include "platform/files/data.hpp"
#include "platform/foundation/error.hpp"

/// Runs external tools and verifies code signatures.
namespace QuorinSupport {

/// The outcome of a tool that ran to its end.
struct CommandResult {
  std::int32_t status = 0;  ///< the tool's exit status, or the number of the signal that ended it
  platform::Data stdout;    ///< all that it wrote to standard output
  platform::Data stderr;    ///< all that it wrote to standard error
};

namespace CommandRunner {

/// The tool exceeded its time limit and was stopped.
class Failure : public platform::LocalizedError {
 public:
  static Failure timedOut(const std::string& toolName);

 private:
  using LocalizedError::LocalizedError;
};

/// Runs a tool from launch to exit, with end of file on its standard input and the caller's environment and
/// working directory; blocks the calling thread meanwhile. Any status is a result, not a failure.
///
/// `timeout` is in seconds from the launch. A tool that still runs then receives SIGTERM, a second later
/// SIGKILL, and `Failure` is thrown. When the calling task is cancelled, the tool is stopped in the same way
/// and `platform::CancellationError` is thrown. Failures of the system, such as that of a tool that cannot be
/// started, are thrown unchanged. In every case the tool's process has ended when the call ends, and nothing
/// remains in the temporary directory.
CommandResult run(const std::string& executable, const std::vector<std::string>& arguments, double timeout);

}  // namespace CommandRunner
}  // namespace QuorinSupport
