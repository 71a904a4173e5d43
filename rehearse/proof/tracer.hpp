#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace rehearse {

/// A system call of a traced program.
struct SystemCall {
  pid_t process = 0;       ///< whichever of its threads calls
  bool byUpdater = false;  ///< true for the program that was started, false for what it started
  bool alone = false;      ///< no other process of the updater and its tools exists
  std::string program;     ///< the last component of its executable's path
  long number = 0;
  std::array<std::uint64_t, 6> arguments{};
};

/// What is to become of a call.
struct Fate {
  enum class Kind {
    proceed,
    fail,        ///< it is not made and gives an error
    failAfter,   ///< it is made, and gives an error nevertheless
    pretend,     ///< it is not made and gives 0
    killBefore,  ///< the victims die before it is made
    killAfter,   ///< the victims die right after it
    hang,        ///< the process never gets any further
  };
  enum class Victim { caller, tool, everyone };
  Kind kind = Kind::proceed;
  int errorNumber = 0;
  Victim victim = Victim::caller;
};

/// How a traced program ended.
struct Ending {
  int exitStatus = -1;   ///< -1 when a signal ended it
  int signal = 0;        ///< 0 when none did
  bool overran = false;  ///< it took too long and was killed
  std::string output;
  std::string error;
};

/// Who looks at the calls. While either is called, the traced caller waits.
struct Watcher {
  std::function<Fate(const SystemCall&)> before;
  /// The numbers of the calls at which to stop, of those in `systemCallKinds()`: all where there is no value.
  /// Each stop takes more time than most calls.
  std::optional<std::vector<long>> calls = std::nullopt;
  /// Called behind each call that was made, with the result that it had or a negative error number, whatever
  /// its fate makes of that.
  std::function<void(const SystemCall&, std::int64_t)> after = {};
  /// Which calls `after` is called behind: all without it.
  bool (*wantsAfter)(const SystemCall&) = nullptr;
  /// Called in the program's process before the program takes its place, and may change what it inherits.
  std::function<void()> prepare = {};
  /// Where it is true, the program that was started does not wait in vain: each look at its monotonic clock
  /// finds an hour gone by, as long as it has started nothing, and as long as a process below it hangs by its
  /// fate and all between them live. At other times its clock advances as the system's does. What it starts
  /// has the system's clock throughout.
  ///
  /// That program reads the time by system calls, since its auxiliary vector names no vDSO (getauxval(3),
  /// vdso(7)); a filter has the tracer change what `clock_gettime` gives for `CLOCK_MONOTONIC` (seccomp(2),
  /// ptrace(2)). A run without this pays nothing for it. Sleeping is not shortened: a program that sleeps
  /// until its deadline in one call waits as long as it did.
  bool leapingClock = false;
  /// After this time everything is ended by force.
  std::chrono::seconds timeLimit{20};
};

/// Runs a program and everything that it starts, and stops at the calls that the watcher wants, until all of
/// them have ended, apart from those that hang, which are then killed. For a process without other children.
/// Throws `std::system_error` where the system refuses tracing.
Ending trace(const std::filesystem::path& program, const std::vector<std::string>& arguments,
             const Watcher& watcher);

}  // namespace rehearse
