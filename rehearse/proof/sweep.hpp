#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace rehearse {

/// What came of one point of a sweep: a word, such as "old" or "new", and what is wrong, a sentence each.
struct Result {
  std::string point;
  std::string outcome;
  std::vector<std::string> violations;
};

/// The directories of one worker: `home` and `temporary`, which is "/tmp" to it, each a file system in memory
/// of its own that nobody else sees.
struct Place {
  std::filesystem::path home;
  std::filesystem::path temporary;
};

/// Tries one point or several, and tells of each.
using Task = std::function<void(const Place&, const std::function<void(const Result&)>&)>;

struct PlannedSweep {
  std::string name;
  std::vector<Task> tasks;
  /// True for a control: something that keeps the promise was taken away, and it must be seen to break.
  bool mustFail = false;
};

/// Gives the process a mount namespace of its own with a worker's place below `directory`, and makes it adopt
/// the orphans of what it starts. Throws `std::system_error` where the system refuses it.
Place settle(const std::filesystem::path& directory);

/// Ends that, so that `directory` can be removed.
void leave(const std::filesystem::path& directory);

/// Runs the tasks in several processes and tells of each result as it comes. A task that throws or dies is a
/// violation.
void runTasks(const std::vector<Task>& tasks, const std::filesystem::path& directory, unsigned workers,
              const std::function<void(const Result&)>& report);

}  // namespace rehearse
