#pragma once

#include <atomic>
#include <string>

#include "platform/ditto/item.hpp"

namespace platform::ditto {

/// A directory and its copy, both open. Those who fill the copy enter it before and leave it after; when the
/// last one has left, the copy gets the directory's attributes. Whoever makes it has entered it.
class DirectoryCopy {
 public:
  struct Directory {
    FileDescriptor descriptor;
    std::string path;  ///< as it stands in messages
  };

  /// Throws `SystemError`.
  DirectoryCopy(Directory source, Directory copy);

  Item source(const std::string& name) const { return item(source_, name); }
  Item copy(const std::string& name) const { return item(copy_, name); }
  Identity sourceIdentity() const { return identityOf(status_); }
  Identity copyIdentity() const { return copyIdentity_; }

  void enter() noexcept { ++users_; }
  /// Throws `Error`, also when the directory is seen to have changed since it was opened.
  void leave();

 private:
  static Item item(const Directory& directory, const std::string& name) {
    return {directory.descriptor, name, directory.path + '/' + name};
  }

  Directory source_;
  Directory copy_;
  struct stat status_;
  Identity copyIdentity_;
  std::atomic<unsigned> users_ = 1;
};

}  // namespace platform::ditto
