#pragma once

/// The operations of the updater.
namespace QuorinOstrevalUpdater {

/// One run, from the command line to the exit with status 0 or 1: waits for the end of the application,
/// installs the update, writes the status, restarts the application, rolls back if that fails, and cleans up.
/// Writes nothing to standard output, and one line to standard error after a failure.
[[noreturn]] void main();

}  // namespace QuorinOstrevalUpdater
