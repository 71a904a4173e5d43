#pragma once

#include <sys/stat.h>

#include <atomic>
#include <string>
#include <vector>

#include "platform/files/directory.hpp"
#include "platform/files/directory_reader.hpp"

namespace platform::ditto {

/// A directory and its copy, both open. Who fills the copy enters it before and leaves it after, the creator
/// having entered it; when the last one has left, the copy gets the directory's attributes.
class DirectoryCopy {
 public:
  /// Throws `SystemError`.
  DirectoryCopy(Directory source, Directory copy);

  Entry source(const std::string& name) const { return source_.entry(name); }
  Entry copy(const std::string& name) const { return copy_.entry(name); }
  FileIdentity sourceIdentity() const { return identityOf(status_); }
  FileIdentity copyIdentity() const { return copyIdentity_; }

  void enter() noexcept { ++users_; }
  /// Throws `Error`, also when the directory is seen to have changed since it was opened.
  void leave();

 private:
  Directory source_;
  Directory copy_;
  struct stat status_;
  FileIdentity copyIdentity_;
  std::atomic<unsigned> users_ = 1;
};

/// The next names in a directory, a bounded number, in the order in which the files are on the disk as far as
/// their inode numbers tell; none at the end. Throws `SystemError` naming `path`.
std::vector<std::string> nextNames(DirectoryReader& reader, const std::string& path);

}  // namespace platform::ditto
