#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/files/data.hpp"
#include "platform/foundation/error.hpp"

/// The module that runs external tools and judges code signatures.
namespace QuorinSupport {

/// The outcome of a tool that ran to its end.
struct CommandResult {
  std::int32_t status = 0;  ///< the tool's exit status, or the number of the signal that ended it
  platform::Data stdout;    ///< all that it wrote to standard output
  platform::Data stderr;    ///< all that it wrote to standard error
};

namespace CommandRunner {

/// The tool overran its time and was stopped.
class Failure : public platform::LocalizedError {
 public:
  static Failure timedOut(const std::string& toolName);

 private:
  using LocalizedError::LocalizedError;
};

/// Runs a tool from launch to exit, with end of file on its standard input and the caller's environment and
/// working directory, and blocks the calling thread meanwhile. Any status is a result and no failure.
///
/// `timeout` is in seconds, from the launch on. A tool that is still running then is asked to end, killed a
/// second later, and `Failure` is thrown; the same happens with `platform::CancellationError` when the
/// calling task is cancelled. Failures of the system, among them that of a tool that cannot be started, are
/// thrown as they are. Whichever way the call ends, the tool's process has ended too and nothing stays in the
/// temporary directory.
CommandResult run(const std::string& executable, const std::vector<std::string>& arguments, double timeout);

}  // namespace CommandRunner
}  // namespace QuorinSupport
