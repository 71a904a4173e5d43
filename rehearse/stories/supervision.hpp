#pragma once

#include <filesystem>
#include <functional>

namespace rehearse {

/// Runs `work` in a process below this one with a new scratch directory below `parent`, which others can pass
/// and not list, and returns its exit status. Afterwards, and also when SIGINT, SIGTERM or SIGHUP arrives,
/// everything that it has started is ended and the scratch directory is removed; this process then ends by
/// that signal. When SIGKILL ends this process, another does the same a moment later. The process must have
/// one thread and no other children. Throws `platform::Error` when the scratch directory cannot be made or
/// removed.
int supervise(const std::filesystem::path& parent,
              const std::function<int(const std::filesystem::path& scratch)>& work);

}  // namespace rehearse
