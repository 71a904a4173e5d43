#pragma once

#include <string>
#include <vector>

#include "platform/foundation/property_list.hpp"
#include "platform/security/directory.hpp"

namespace platform {

/// A directory that is code, as it lies on disk: an application or a bundle like one, or one version of a
/// framework.
struct Bundle {
  Directory root;
  Directory content;           ///< what the seal's paths begin in
  std::string executablePath;  ///< from the content directory, as the disk writes it
  std::string informationBytes;
  PropertyList information;

  CodeFile openExecutable() const;
};

/// True for a directory that has the shape of a bundle, whatever is in it.
bool hasBundleShape(const Directory& directory);

/// The code in a bundle: the one that it is, or every version of a framework, the current one first.
///
/// In the root lies nothing that the code's own seals would not cover: beside the content directory, or the
/// versions, only a framework's links to items of its versions, by whichever of their names. Throws `Error`
/// with a whole sentence, or `FormatError`.
std::vector<Bundle> openBundles(const Directory& root);

/// True when a symbolic link in the directory leads to a place in its outermost parent, over whichever other
/// links, and not over more directories than any real one does.
bool linkStaysInside(const Directory& directory, const std::string& target);

}  // namespace platform
