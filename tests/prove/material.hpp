#pragma once

#include <filesystem>
#include <string>

#include "tests/helpers/files.hpp"
#include "tests/helpers/sample_application.hpp"

namespace prove {

/// A disk image that is offered for an update, and the version that it holds.
struct Offer {
  std::filesystem::path image;
  std::string digest;
  std::string version;
  test::Inventory application;  ///< what stands at the target's path after the update
};

/// What updates are made of, made once: a prefix that trusts a chain of its own, signed applications and
/// images.
class Material {
 public:
  explicit Material(const std::filesystem::path& directory);

  static constexpr const char* kIdentifier = "com.example.quorin-ostreval";

  std::filesystem::path updater;
  /// The same, which waits no more than half a second for others.
  std::filesystem::path hastyUpdater;
  std::filesystem::path oldApplication;
  Offer update;  ///< version 2.0
  Offer broken;  ///< version 2.0 that does not start
  Offer next;    ///< version 3.0

 private:
  std::filesystem::path makeApplication(const std::string& version, const std::string& script);
  Offer makeOffer(const std::string& version, const std::string& script);

  std::filesystem::path directory_;
  test::SampleChain chain_;
};

}  // namespace prove
