#pragma once

#include <sys/types.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "rehearse/files/file_notices.hpp"
#include "rehearse/proof/home.hpp"

namespace rehearse {

/// Describes at each moment of an update what would be on the disk if the updater and all its tools died now.
/// That is all that matters for what comes after: no process of an update outlives it to change anything, an
/// attached image is a directory, and the file system is the one that the next update finds.
///
/// Two moments have the same description, the state, when these are the same:
/// - which application is at the target's path, compared entry by entry with those that are known, and where
///   it is no good, whether the previous one is complete beside it;
/// - what else is beside it, in the home under hidden names and in "/tmp", by name, where the random parts of
///   names count as the same, and whether there are a status file and a ready file.
/// How much of a hidden copy, of an image that is being attached or detached, or of a tool's output has been
/// written is not in it. No promise speaks of that, no later run reads a hidden copy or such output, and the
/// next run removes what was being attached whatever is in it. That last part is what a run samples: of the
/// points with one state, several are tried, spread over its duration.
///
/// It costs little: the kernel queues a notice of each change before the call that made it ends, and nothing
/// is looked at again without one.
class DiskObserver {
 public:
  /// `home` is furnished and exists as long as this. Throws `platform::Error` where no more notices can be
  /// had.
  explicit DiskObserver(const Home& home);

  const std::string& state();

 private:
  void watch(const std::filesystem::path& directory, ino_t tree);
  void watchNames();
  void watchTree(ino_t tree);
  bool takeNotices();
  std::string describe();

  const Home& home_;
  FileNotices notices_;
  /// The tree to which a watched directory belongs, by its inode; 0 for the directories of names.
  std::map<int, ino_t> trees_;
  std::set<ino_t> changedTrees_;
  std::set<ino_t> watchedTrees_;
  ino_t atTarget_ = 0;
  bool isNoGood_ = false;
  std::string target_;
  std::string state_;
};

}  // namespace rehearse
