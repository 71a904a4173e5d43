#pragma once

#include <sys/stat.h>

#include <atomic>
#include <string>
#include <vector>

#include "platform/files/directory.hpp"
#include "platform/files/directory_reader.hpp"

namespace platform::ditto {

/// An open directory and its open copy, shared by the threads that fill the copy. Counts its users, of which
/// the creator is the first; when the last one leaves, the copy gets the directory's attributes.
class DirectoryCopy {
 public:
  /// Throws `SystemError`.
  DirectoryCopy(Directory source, Directory copy);

  Entry source(const std::string& name) const { return source_.entry(name); }
  Entry copy(const std::string& name) const { return copy_.entry(name); }
  FileIdentity sourceIdentity() const { return identityOf(status_); }
  FileIdentity copyIdentity() const { return copyIdentity_; }

  /// Adds a user. Only while there is another one.
  void enter() noexcept { ++users_; }
  /// Removes a user. Throws `Error`, also when the directory has changed since it was opened.
  void leave();

 private:
  Directory source_;
  Directory copy_;
  struct stat status_;
  FileIdentity copyIdentity_;
  std::atomic<unsigned> users_ = 1;
};

/// The next names in a directory, at most 1024, sorted by inode number, which approximates the order on the
/// disk; empty at the end. Throws `SystemError` naming `path`.
std::vector<std::string> nextNames(DirectoryReader& reader, const std::string& path);

}  // namespace platform::ditto
