#pragma once

#include <string>

#include "platform/files/data.hpp"
#include "platform/files/url.hpp"

namespace QuorinOstrevalUpdater {

/// The identity of an application bundle, as its Info.plist states it. Values stand as they are in the file.
struct Metadata {
  std::string identifier;  ///< CFBundleIdentifier
  std::string version;     ///< CFBundleShortVersionString
  std::string build;       ///< CFBundleVersion
};

/// Reads the Info.plist of `bundle` anew. Throws `InstallerError::invalidApplication` when it cannot be read,
/// is no dictionary or lacks one of the three values as a text.
Metadata metadata(const platform::URL& bundle);
/// The same from the Info.plist's content.
Metadata metadata(const platform::Data& information);

}  // namespace QuorinOstrevalUpdater
