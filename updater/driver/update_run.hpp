#pragma once

/// The operations of the updater.
namespace QuorinOstrevalUpdater {

/// One whole run, from the command line to the end of the process with status 0 or 1: takes over from the
/// application, waits for its end, installs the update, reports, starts the application again, puts the
/// previous one back if that fails, and cleans up. Writes nothing to standard output, and one line to
/// standard error after a failure.
[[noreturn]] void main();

}  // namespace QuorinOstrevalUpdater
