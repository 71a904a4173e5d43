#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "rehearse/files/private_prefix.hpp"

namespace rehearse {

/// A disk image that the prefix's own tool has attached. The destructor detaches it, as far as it can.
class AttachedImage {
 public:
  /// Throws `platform::Error` with the tool's sentence.
  AttachedImage(const PrivatePrefix& prefix, const std::filesystem::path& image);
  AttachedImage(const AttachedImage&) = delete;
  AttachedImage& operator=(const AttachedImage&) = delete;
  ~AttachedImage();

  const std::filesystem::path& mountPoint() const { return mountPoint_; }

 private:
  const PrivatePrefix& prefix_;
  std::filesystem::path mountPoint_;
};

/// Copies a tree with the prefix's own tool. Throws `platform::Error` with the tool's sentence.
void copyBundle(const PrivatePrefix& prefix, const std::filesystem::path& from,
                const std::filesystem::path& to);

/// Copies the application that `source` is or, as a disk image, contains into the directory `to`, and returns
/// the path of the copy. Of several in an image, the one with `identifier` is preferred, then the first in
/// the order of paths. Nothing when an image contains none. Throws `platform::Error` for what is neither a
/// bundle nor an image.
std::optional<std::filesystem::path> bringApplication(const PrivatePrefix& prefix,
                                                      const std::filesystem::path& source,
                                                      const std::filesystem::path& to,
                                                      const std::string& identifier);

/// The file that is the application's main executable. Throws `platform::Error` when Info.plist names none.
std::filesystem::path mainExecutable(const std::filesystem::path& application);

/// The sum of the sizes of the files below `path`, in bytes.
std::uint64_t sizeOfTree(const std::filesystem::path& path);

}  // namespace rehearse
