#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "rehearse/rehearsal_options.hpp"
#include "rehearse/stories/release.hpp"

namespace rehearse {

/// Proves the update of one installed application to the release, which contains one, as the command line
/// asks for it, in `directory`, which must not exist and is removed. Throws `platform::Error` when the system
/// does not allow it.
std::vector<Sweep> proveUpdate(const CommandLine& line, const PrivatePrefix& prefix,
                               const OfferedRelease& release, const Application& installed,
                               const std::filesystem::path& directory,
                               const std::function<void(const std::string&)>& progress);

}  // namespace rehearse
