#pragma once

#include <functional>
#include <set>
#include <string>

#include "platform/files/directory.hpp"
#include "platform/files/url.hpp"

namespace platform::hdiutil {

/// The images that a user has attached: a directory of that user alone with one directory for each image
/// ("disk4"), which contains the trees of its mounted volumes under the volumes' names. An image is attached
/// exactly as long as its directory has that name; getting and losing it is one rename. Processes may use the
/// registry at the same time. What a process left behind that died while it attached or detached an image is
/// removed by the next one that does either.
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
    const Directory& directory() const noexcept { return directory_; }
    /// A new, empty directory in `directory()` with a name that no volume has, and that name.
    std::string makeTree();
    URL location(const std::string& tree) const;
    /// Gives such a directory, or one in it, the name of its volume, or one made of it where another volume
    /// has that name. Returns the name.
    std::string mount(const std::string& tree, const std::string& volumeName);
    /// Removes such a directory with all that it contains.
    void discard(const std::string& tree);
    /// Removes all that `mount` did not rename.
    void discardTrees();
    /// Attaches the image, and passes the number of its device to `announce`. When that throws or never
    /// returns, nobody knows of the image, and it does not stay attached.
    void commit(const std::function<void(unsigned)>& announce);

   private:
    ImageRegistry& registry_;
    Entry entry_;
    Directory directory_;
    std::set<std::string> trees_;
    std::set<std::string> mountNames_;
    bool isCommitted_ = false;
  };

  /// Where the volume that `Attachment::mount` named is mounted once the image has that device number.
  URL mountPoint(unsigned device, const std::string& mountName) const;

  /// Detaches the image with all its volumes. It is named by any of its device entries ("/dev/disk4",
  /// "/dev/disk4s1") or mount points. Throws `ImageError` when there is no such image.
  void detach(const std::string& deviceOrMountPoint);

 private:
  std::string nameOf(const std::string& deviceOrMountPoint) const;
  void removeLeftovers();

  URL location_;
  Directory directory_;
};

/// The name of a volume, with a short ending, as the last component of a path.
std::string mountName(const std::string& volumeName, const std::string& suffix = "");

/// Where the registry of the user who runs this program is: in the temporary directory, under a name made of
/// the user's number. Where somebody else has taken that name, it is another one that begins with it.
URL registryLocation();

/// The same for another temporary directory.
URL registryLocation(const URL& temporaryDirectory);

}  // namespace platform::hdiutil
