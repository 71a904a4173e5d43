#pragma once

#include <string>
#include <vector>

#include "platform/formats/property_list.hpp"
#include "platform/security/code_file.hpp"

namespace platform {

/// A directory that is code, as it lies on disk: an application or a bundle like one, or one version of a
/// framework.
struct Bundle {
  Directory root;
  Directory content;  ///< what the seal's paths begin in
  /// From the content directory, as the disk writes it. Info.plist itself where it names no executable: its
  /// pages are then what the code directory covers.
  std::string executablePath;
  std::string informationBytes;
  PropertyList information;

  CodeFile openExecutable() const;
};

/// True for a directory that has the shape of a bundle, whatever is in it.
bool hasBundleShape(const Directory& directory);

/// The code in a bundle: the one that it is, or every version of a framework, the current one first.
///
/// The root may contain only what a seal covers, which is the content directory, or `Versions` and links that
/// lead from their names to the same names in a version, and files without execute permission that users and
/// the system put there, such as a folder's view settings. Throws `Error` with a whole sentence, or
/// `FormatError`.
std::vector<Bundle> openBundles(const Directory& root);

}  // namespace platform
