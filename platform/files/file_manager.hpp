#pragma once

#include <optional>
#include <string>

#include "platform/files/directory_enumerator.hpp"
#include "platform/files/held_item.hpp"
#include "platform/files/url.hpp"

namespace platform {

enum class ItemReplacementOptions {
  /// The replaced item stays under the backup's name.
  withoutDeletingBackupItem = 2,
};

enum class IntermediateDirectories { no, yes };
enum class DirectoryAccess { asTheMaskSays, ownerOnly };

/// What the system says of an item. It says nothing of one in a directory that may not be searched, or when
/// it fails.
enum class ItemPresence { absent, present, unknown };

/// Operations on files and directories. Failures are thrown as `SystemError`, naming the item and the reason.
class NSFileManager {
 public:
  /// The one shared manager.
  static const NSFileManager& defaultManager();

  NSFileManager(const NSFileManager&) = delete;
  NSFileManager& operator=(const NSFileManager&) = delete;

  /// A writable directory for temporary files, the same for every call and whatever the environment says.
  URL temporaryDirectory() const;

  /// True when a file or directory is there; a link counts as what it leads to. False also where the system
  /// does not tell, as in a directory that the caller may not search.
  bool fileExistsAtPath(const std::string& path) const;

  /// The same question for callers who would lose something by a wrong answer.
  ItemPresence presenceOfItemAtPath(const std::string& path) const;

  /// Whether both are there and are one item; links count as what they lead to.
  bool leadToOneItem(const URL& one, const URL& other) const;

  /// The directory exists afterwards, and so do its parents when they were asked for. With intermediate
  /// directories, a directory that is there already is no failure. What is made for the owner only is closed
  /// to all others from the beginning, whatever the process's mask.
  void createDirectoryAtURL(const URL& url, IntermediateDirectories intermediates,
                            DirectoryAccess access = DirectoryAccess::asTheMaskSays) const;

  /// An empty file at `path`; false when there is none afterwards.
  bool createFileAtPath(const std::string& path) const;

  /// A file, a link or a whole tree is gone afterwards, however deep it is. Links are removed, never
  /// followed, and directories of the caller that forbid changes are opened up. On failure part of a tree may
  /// be gone.
  void removeItemAtURL(const URL& url) const;
  /// The same, unless the item or a directory in it is `spared`, or the system does not tell: that is a
  /// failure, and the spared item is left with everything in it. Of a directory it is certain; a file or link
  /// that takes the name between the comparison and the removal goes.
  void removeItemAtURL(const URL& url, const HeldItem& spared) const;

  /// A walk of everything below the directory `url`; nothing when that is no directory that can be read. The
  /// walk reports no failure.
  std::optional<NSDirectoryEnumerator> enumeratorAtURL(const URL& url,
                                                       DirectoryEnumerationOptions options) const;

  /// The item stands at `to` and no longer at `from`. Whatever is at `to` before, an empty directory
  /// included, is a failure, after which both are as they were. Both places lie on one file system.
  void moveItemAtURL(const URL& from, const URL& to) const;

  /// Each of the two items stands in the other's place afterwards, and at every instant both places hold one.
  /// A failure leaves both as they were.
  void exchangeItems(const URL& one, const URL& other) const;

  /// Puts `replacement` at `target` and keeps the item that was there as `backupItemName` in the same
  /// directory.
  ///
  /// The commit point is one exchange of two names: at every instant a complete item, old or new, stands at
  /// `target`. The new item is on stable storage before it, the changed names are after it. A process that
  /// dies before it leaves the new item under the backup's name or still at `replacement`. Where the file
  /// system cannot exchange names, two renames take its place, and `target` is empty for the instant between
  /// them. A failure leaves target and replacement as they were; nothing is ever overwritten.
  void replaceItemAt(const URL& target, const URL& replacement, const std::string& backupItemName,
                     ItemReplacementOptions options) const;

 private:
  NSFileManager() = default;
};

}  // namespace platform
