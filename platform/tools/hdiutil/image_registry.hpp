#pragma once

#include <functional>
#include <string>

#include "platform/foundation/file_descriptor.hpp"
#include "platform/foundation/url.hpp"

namespace platform::hdiutil {

/// The images that a user has attached: the directory of that user alone in which they stand, one directory
/// for each ("disk4"), which holds nothing but the volume's tree under the volume's name. An image is
/// attached exactly as long as its directory has that name; getting and losing it is one renaming. Processes
/// may use it at the same time, and what a process that died left behind is removed by the next one that
/// attaches or detaches.
class ImageRegistry {
 public:
  /// Makes the directory where it is missing. Throws `ImageError` when it is a link, belongs to somebody else
  /// or is open to others.
  explicit ImageRegistry(const URL& location);

  /// An image on its way to being attached. Unless it is, nothing stays of it.
  class Attachment {
   public:
    explicit Attachment(ImageRegistry& registry);
    Attachment(const Attachment&) = delete;
    Attachment& operator=(const Attachment&) = delete;
    ~Attachment();

    /// For temporary files without names.
    const FileDescriptor& directory() const noexcept { return directory_; }
    /// A new, empty directory for the volume's tree; one that was made before is removed.
    URL makeTree();
    /// Attaches the image under the name of its volume, and tells the number of its device to `announce`.
    /// When that throws, nobody knows of the image, and it is not attached.
    void commit(const std::string& volumeName, const std::function<void(unsigned)>& announce);

   private:
    ImageRegistry& registry_;
    std::string name_;
    FileDescriptor directory_;
    bool isCommitted_ = false;
  };

  /// Where the volume of the image with that device number is mounted, under the name of its volume.
  URL mountPoint(unsigned device, const std::string& volumeName) const;

  /// Detaches the image of a device entry ("/dev/disk4", "/dev/disk4s1") or mount point. Throws `ImageError`
  /// when there is no such image.
  void detach(const std::string& deviceOrMountPoint);

 private:
  std::string nameOf(const std::string& deviceOrMountPoint) const;
  void removeLeftovers();

  URL location_;
  FileDescriptor directory_;
};

/// The name of a volume as the last component of a path.
std::string mountName(const std::string& volumeName);

/// Where the registry of the user who runs this program is: in the temporary directory, under a name made of
/// the user's number. Where somebody else has taken that name, it is another one that begins with it.
URL registryLocation();

/// The same for another temporary directory.
URL registryLocation(const URL& temporaryDirectory);

}  // namespace platform::hdiutil
