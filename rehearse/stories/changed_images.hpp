#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <string>

#include "rehearse/stories/release.hpp"

namespace rehearse {

/// An image that was made of a release by a change, with its own digest.
struct ChangedImage {
  std::filesystem::path path;
  std::string digest;
};

/// The images with which an update must be refused. Each is made when it is first asked for, and kept. All
/// operations throw `platform::Error` when the image cannot be made.
class ChangedImages {
 public:
  /// `release` contains an application. Files are made below `directory`.
  ChangedImages(const PrivatePrefix& prefix, const OfferedRelease& release, std::filesystem::path directory);

  /// One bit is changed in the middle of the image.
  const ChangedImage& flipped();
  /// The second half is missing.
  const ChangedImage& truncated();
  /// The image is made anew of the unchanged application: a control for the following ones.
  const ChangedImage& remade();
  /// The application is signed by another signer who claims the same team.
  const ChangedImage& signedAnew();
  /// The application has another identifier, and is signed anew.
  const ChangedImage& otherIdentifier();
  /// One bit is changed in a file of the application.
  const ChangedImage& damagedFile();

 private:
  using Change = std::function<void(const std::filesystem::path& application)>;

  const ChangedImage& made(const std::string& name,
                           const std::function<void(const std::filesystem::path&)>& make);
  const ChangedImage& madeOf(const std::string& name, const Change& change);
  void sign(const std::filesystem::path& application);

  const PrivatePrefix& prefix_;
  const OfferedRelease& release_;
  std::filesystem::path directory_;
  std::map<std::string, ChangedImage> images_;
};

/// Changes one bit in a file that the application's seal covers. Throws `platform::Error`.
void damage(const std::filesystem::path& application);

}  // namespace rehearse
