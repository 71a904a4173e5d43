#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/files/url.hpp"
#include "platform/formats/property_list.hpp"

namespace sign_bundle {

/// The parts of a bundle, or of one version of a framework.
struct BundleLayout {
  /// Paths in the resource seal are relative to this directory.
  platform::URL content;
  platform::URL infoPlist;
  platform::URL mainExecutable;  ///< the property list itself if it does not name one
  /// From the property list; may be empty.
  std::string identifier;
};

/// Whether the directory is structured as a bundle.
bool isBundle(const platform::URL& directory);

/// One layout, or for a framework one for each version with the current version last. Throws
/// `platform::Error` naming what is missing.
std::vector<BundleLayout> layoutsOf(const platform::URL& bundle);

}  // namespace sign_bundle
