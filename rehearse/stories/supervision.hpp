#pragma once

#include <filesystem>
#include <functional>

namespace rehearse {

/// Runs `work` in a child process with a new scratch directory below `parent`, which others can pass and not
/// list, and returns the child's exit status. Afterwards, and also when SIGINT, SIGTERM or SIGHUP arrives,
/// everything that the child has started is ended and the scratch directory is removed; this process then
/// ends by that signal. The process must have one thread and no other children. Throws `platform::Error` when
/// the scratch directory cannot be made or removed.
int supervise(const std::filesystem::path& parent,
              const std::function<int(const std::filesystem::path& scratch)>& work);

}  // namespace rehearse
