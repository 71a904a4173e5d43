#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/files/url.hpp"
#include "platform/formats/property_list.hpp"

namespace sign_bundle {

/// Where the parts of one bundle, or of one version of a framework, lie.
struct BundleLayout {
  /// The directory that paths of the resource seal are relative to.
  platform::URL content;
  platform::URL infoPlist;
  platform::URL mainExecutable;  ///< the property list itself where it names none
  /// From the property list; empty where it has none.
  std::string identifier;
};

/// True for a directory that has the shape of a bundle.
bool isBundle(const platform::URL& directory);

/// The bundle's layouts: one, or for a framework one for every version, with the current one last.
/// Throws `platform::Error` naming what the bundle lacks.
std::vector<BundleLayout> layoutsOf(const platform::URL& bundle);

}  // namespace sign_bundle
