#pragma once

#include <string>

#include "platform/files/url.hpp"

namespace QuorinOstrevalUpdater {

/// The first application bundle below `directory`, at any depth and of any name, whose Info.plist contains
/// exactly `identifier`. Hidden folders and the contents of packages are not searched, and a bundle without a
/// complete Info.plist is ignored. Throws `InstallerError::invalidApplication` when there is none, and
/// nothing else.
platform::URL findApplication(const platform::URL& directory, const std::string& identifier);

}  // namespace QuorinOstrevalUpdater
