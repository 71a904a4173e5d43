#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "rehearse/files/trees.hpp"
#include "rehearse/proof/starts.hpp"

namespace rehearse {

/// An application of which everything is known.
struct KnownApplication {
  std::string version;
  std::string build;
  Inventory content;
};

/// A disk image that is offered for an update, and the application that is at the target's path after it.
struct Offer {
  std::filesystem::path image;
  std::string digest;
  KnownApplication application;
  /// A regular file of the application that its signature seals, not empty.
  std::string sealedFile;
};

/// What the updates of a proof are made of. It must exist as long as a sweep of it.
struct Material {
  std::filesystem::path updater;
  std::string bundleName;  ///< of the target
  std::string identifier;
  std::string team;
  std::filesystem::path oldBundle;
  KnownApplication old;
  Offer update;
  Offer broken;  ///< the update when its start is refused
  Offer next;    ///< what the user is offered next, which may be the same as `update`
  std::shared_ptr<const Starts> starts;
  bool canRefuseStart = true;  ///< of the offered application without refusing that of the old one
  /// No traced update takes longer unless something is wrong.
  std::chrono::seconds timeLimit{20};
  /// In bytes: no update needs more space beside the application or in "/tmp", nor a greater file.
  std::uint64_t enoughBeside = 131'072;
  std::uint64_t enoughTemporary = 524'288;
  std::uint64_t enoughFile = 65'536;
  std::uint64_t enoughMemory = std::uint64_t(512) << 20U;
};

/// A file of `application` that its resource seal protects, the smallest that is not empty, as a path in the
/// bundle; its property list where it has no such resource. Throws `platform::Error` when the seal cannot be
/// read.
std::string sealedFileOf(const std::filesystem::path& application);

}  // namespace rehearse
