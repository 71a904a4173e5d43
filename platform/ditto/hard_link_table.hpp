#pragma once

#include <map>
#include <string>

#include "platform/files/directory.hpp"

namespace platform::ditto {

/// The files with several hard links whose copy exists under the first of their names. A file is removed once
/// all its names have been found, so that the table contains only files that are still to be linked.
class HardLinkTable {
 public:
  struct Copy {
    std::string path;  ///< below the root of the copy, without a leading slash
    FileIdentity identity;
  };

  /// Adds the copy of a file with `names` names, at least two.
  void add(const FileIdentity& source, nlink_t names, Copy copy);

  /// True when the file was added and not all its names have been found.
  bool contains(const FileIdentity& source) const { return files_.contains(source); }

  /// The copy, to be linked to one more name. Only for a file that the table contains.
  Copy take(const FileIdentity& source);

 private:
  struct File {
    Copy copy;
    nlink_t remainingNames;
  };
  std::map<FileIdentity, File> files_;
};

/// Creates one more hard link to a copy below `root`. Throws `SystemError`, and `Error` when the file at its
/// path is another one.
void linkCopy(const Entry& root, const HardLinkTable::Copy& copy, const Entry& newName);

}  // namespace platform::ditto
