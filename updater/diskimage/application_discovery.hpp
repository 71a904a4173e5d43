#pragma once

#include <string>

#include "platform/files/url.hpp"

namespace QuorinOstrevalUpdater {

/// The application bundle below `directory`, at any depth, whose Info.plist carries exactly `identifier`; the
/// first one that the walk meets. Neither its name nor its place matters, but hidden folders and the insides
/// of other applications are not searched, and a bundle without a complete Info.plist is none. Throws
/// `InstallerError::invalidApplication` when there is none, and nothing else.
platform::URL findApplication(const platform::URL& directory, const std::string& identifier);

}  // namespace QuorinOstrevalUpdater
