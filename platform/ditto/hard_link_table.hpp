#pragma once

#include <map>
#include <string>

#include "platform/files/directory.hpp"

namespace platform::ditto {

/// The files with several names whose copy has been made under the first of them. A file is forgotten once
/// all its names have been met, so that the table holds no more than what is still to be linked.
class HardLinkTable {
 public:
  struct Copy {
    std::string path;  ///< below the root of the copy, without a slash at its beginning
    FileIdentity identity;
  };

  /// Notes the first copy of a file with `names` names, at least two.
  void add(const FileIdentity& source, nlink_t names, Copy copy);

  /// Whether a copy of the file has been noted and not all its names been met.
  bool holds(const FileIdentity& source) const { return files_.contains(source); }

  /// The noted copy, for one more name. Only for a file that the table holds.
  Copy take(const FileIdentity& source);

 private:
  struct File {
    Copy copy;
    nlink_t remainingNames;
  };
  std::map<FileIdentity, File> files_;
};

/// Gives a copy below `root` one more name. Throws `SystemError`, and `Error` when what is found is not that
/// copy.
void linkCopy(const Entry& root, const HardLinkTable::Copy& copy, const Entry& newName);

}  // namespace platform::ditto
