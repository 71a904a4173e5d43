#pragma once

#include <optional>
#include <string>

#include "platform/files/directory_enumerator.hpp"
#include "platform/files/held_item.hpp"
#include "platform/files/url.hpp"

namespace platform {

enum class ItemReplacementOptions {
  /// The replaced item is kept under the backup's name.
  withoutDeletingBackupItem = 2,
};

enum class IntermediateDirectories { no, yes };
enum class DirectoryAccess { asTheMaskSays, ownerOnly };

/// Whether an item exists. Unknown if the system refuses to answer, as for a directory that the caller must
/// not search, or fails.
enum class ItemPresence { absent, present, unknown };

/// Operations on files and directories. Failures are thrown as `SystemError`, which names the item and the
/// reason. Callable from any thread.
class NSFileManager {
 public:
  /// The one shared manager.
  static const NSFileManager& defaultManager();

  NSFileManager(const NSFileManager&) = delete;
  NSFileManager& operator=(const NSFileManager&) = delete;

  /// The writable directory for temporary files. Independent of the environment.
  URL temporaryDirectory() const;

  /// True if an item exists at `path`; links are followed. False also if that cannot be determined.
  bool fileExistsAtPath(const std::string& path) const;

  /// The same for callers to whom a wrong answer would do harm.
  ItemPresence presenceOfItemAtPath(const std::string& path) const;

  /// Whether both exist and are the same item; links are followed.
  bool leadToOneItem(const URL& one, const URL& other) const;

  /// Creates a directory, with missing parents if asked for; then an existing directory is not a failure.
  /// With `ownerOnly`, others have no access from the beginning, independently of the umask; parents follow
  /// the umask.
  void createDirectoryAtURL(const URL& url, IntermediateDirectories intermediates,
                            DirectoryAccess access = DirectoryAccess::asTheMaskSays) const;

  /// Creates an empty file at `path` or truncates an existing one. Returns false on failure.
  bool createFileAtPath(const std::string& path) const;

  /// Removes a file, a link or a tree of any depth. Links are not followed. Directories of the caller that
  /// forbid changes are made writable first. On failure, part of a tree may have been removed.
  void removeItemAtURL(const URL& url) const;
  /// The same, but fails if the item or a directory in it is `spared` or cannot be compared with it; `spared`
  /// and its contents are then kept. That is certain for directories; a file or link that takes the name
  /// between comparison and removal is removed.
  void removeItemAtURL(const URL& url, const HeldItem& spared) const;

  /// Walks everything below the directory `url`; nothing unless that is a readable directory. The walk
  /// ignores failures.
  std::optional<NSDirectoryEnumerator> enumeratorAtURL(const URL& url,
                                                       DirectoryEnumerationOptions options) const;

  /// Renames an item. Fails if an item exists at `to`, even an empty directory; both must be on the same file
  /// system. On failure nothing has changed.
  void moveItemAtURL(const URL& from, const URL& to) const;

  /// Exchanges two items atomically: at every instant, both paths name one of them. On failure nothing has
  /// changed.
  void exchangeItems(const URL& one, const URL& other) const;

  /// Moves `replacement` to `target` and keeps the previous item as `backupItemName` in the same directory.
  ///
  /// The commit point is one exchange of two names: at every instant, `target` is a complete item, old or
  /// new. The new item is on stable storage before the exchange, the names are after it. If the process dies
  /// before the exchange, the new item is under the backup's name or still at `replacement`. On file systems
  /// that cannot exchange names, two renames replace it, and `target` does not exist between them. On
  /// failure, target and replacement are as before; nothing is ever overwritten.
  void replaceItemAt(const URL& target, const URL& replacement, const std::string& backupItemName,
                     ItemReplacementOptions options) const;

 private:
  NSFileManager() = default;
};

}  // namespace platform
