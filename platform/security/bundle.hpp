#pragma once

#include <string>
#include <vector>

#include "platform/formats/property_list.hpp"
#include "platform/security/code_file.hpp"

namespace platform {

/// A bundle on disk: an application, a bundle of the same shape, or one version of a framework.
struct Bundle {
  Directory root;
  Directory content;  ///< the seal's paths are relative to it
  /// Relative to the content directory, with the names as they are on disk. The path of Info.plist when that
  /// names no executable: the code directory's pages then cover Info.plist.
  std::string executablePath;
  std::string informationBytes;
  PropertyList information;

  /// Throws `SystemError`.
  CodeFile openExecutable() const;
};

/// True when the directory contains an item by which bundles are recognised, valid or not. Throws
/// `SystemError`.
bool hasBundleShape(const Directory& directory);

/// The bundle at `root`; for a framework, every version of it, the current one first.
///
/// The root may contain only the content directory, or `Versions` and links to items of the same name in a
/// version, and beside them certain files without execute permission that users and the system put there,
/// such as a folder's view settings. Anything else is rejected, as no seal would cover it. Throws
/// `Error` with a sentence, or `FormatError`.
std::vector<Bundle> openBundles(const Directory& root);

}  // namespace platform
