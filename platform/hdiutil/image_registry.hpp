#pragma once

#include <functional>
#include <set>
#include <string>

#include "platform/files/directory.hpp"
#include "platform/files/url.hpp"

namespace platform::hdiutil {

/// The images that a user has attached: a private directory with one directory for each image ("disk4"),
/// which contains the trees of its mounted volumes under the volumes' names. An image is attached while its
/// directory has that name; attach and detach are one rename each. Several processes may use the registry at
/// the same time, but only one thread may use this object. What a process leaves behind that dies in an
/// attach or detach is removed by the next process that opens the registry.
class ImageRegistry {
 public:
  /// Creates the directory if it is missing. Throws `ImageError` when it is not a directory, belongs to
  /// another user or is accessible to other users, and `SystemError`.
  explicit ImageRegistry(const URL& location);

  /// An image that is being attached. Unless it is committed, the destructor removes its directory.
  class Attachment {
   public:
    /// `registry` must outlive it. All operations throw `SystemError`.
    explicit Attachment(ImageRegistry& registry);
    Attachment(const Attachment&) = delete;
    Attachment& operator=(const Attachment&) = delete;
    ~Attachment();

    /// The directory of the image, in which temporary files may be created.
    const Directory& directory() const noexcept { return directory_; }
    /// Creates an empty directory for a tree in `directory()` and returns its name, which is unique.
    std::string makeTree();
    URL location(const std::string& tree) const;
    /// Renames a tree, or a directory in one, to the name of its volume as a path component, with a number if
    /// another volume has that name. Returns the new name.
    std::string mount(const std::string& tree, const std::string& volumeName);
    /// Removes a tree.
    void discard(const std::string& tree);
    /// Removes all trees that `mount` did not rename.
    void discardTrees();
    /// Attaches the image and passes its device number to `announce`. If that throws, or the process dies in
    /// it, the caller never learned of the image, and it is detached again. Throws `ImageError` when too many
    /// images are attached.
    void commit(const std::function<void(unsigned)>& announce);

   private:
    ImageRegistry& registry_;
    Entry entry_;
    Directory directory_;
    std::set<std::string> trees_;
    std::set<std::string> mountNames_;
    bool isCommitted_ = false;
  };

  /// The mount point of a volume of an attached image; `mountName` is from `Attachment::mount`.
  URL mountPoint(unsigned device, const std::string& mountName) const;

  /// Detaches an image with all its volumes, given any of its device entries ("/dev/disk4", "/dev/disk4s1")
  /// or mount points. Throws `ImageError` when no such image is attached, and `SystemError`.
  void detach(const std::string& deviceOrMountPoint);

 private:
  std::string nameOf(const std::string& deviceOrMountPoint) const;
  void removeLeftovers();

  URL location_;
  Directory directory_;
};

/// Turns the name of a volume into a valid path component that ends with `suffix`, which must be short.
std::string mountName(const std::string& volumeName, const std::string& suffix = "");

/// The location of the effective user's registry: in the temporary directory, under a name that contains the
/// user ID. If another user has taken that name, a longer one that begins with it.
URL registryLocation();

/// The same for another temporary directory.
URL registryLocation(const URL& temporaryDirectory);

}  // namespace platform::hdiutil
