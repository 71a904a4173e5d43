#pragma once

#include <string>

#include "platform/files/data.hpp"
#include "platform/files/url.hpp"

namespace QuorinOstrevalUpdater {

/// The identity of an application bundle, with the values exactly as in its Info.plist.
struct Metadata {
  std::string identifier;  ///< CFBundleIdentifier
  std::string version;     ///< CFBundleShortVersionString
  std::string build;       ///< CFBundleVersion
};

/// Reads the Info.plist of `bundle`; nothing is cached. Throws `InstallerError::invalidApplication` when it
/// cannot be read, is not a dictionary or does not contain the three values as strings.
Metadata metadata(const platform::URL& bundle);
/// The same for the content of an Info.plist.
Metadata metadata(const platform::Data& information);

}  // namespace QuorinOstrevalUpdater
