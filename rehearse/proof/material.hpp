#pragma once

#include <filesystem>
#include <string>

#include "rehearse/files/trees.hpp"

namespace rehearse {

/// A disk image that is offered for an update, and the version that it contains.
struct Offer {
  std::filesystem::path image;
  std::string digest;
  std::string version;
  std::string build;
  Inventory application;  ///< what is at the target's path after the update
};

/// What the updates of a proof are made of. It must exist as long as a sweep of it.
struct Material {
  std::filesystem::path updater;
  std::string identifier;
  std::string team;
  std::filesystem::path oldApplication;  ///< version 1.0
  Offer update;                          ///< version 2.0
  Offer broken;                          ///< version 2.0 that does not start
  Offer next;                            ///< version 3.0
};

}  // namespace rehearse
