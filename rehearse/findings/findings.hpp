#pragma once

#include <filesystem>
#include <vector>

#include "rehearse/record/rehearsal.hpp"
#include "rehearse/start/start_check.hpp"

namespace rehearse {

/// What `application`'s property list says of it. `source` is what it was read from. Throws `platform::Error`
/// when it cannot be read.
ApplicationName nameOf(const std::filesystem::path& application, const std::string& source);

/// What users would notice of an update from one application to the other that is no failure of the update:
/// the worst first. Both are bundles on disk; neither needs to be validly signed. Throws `platform::Error`
/// when one cannot be read.
std::vector<Finding> compare(const std::filesystem::path& installed, const std::filesystem::path& offered);

}  // namespace rehearse
