#pragma once

#include <compare>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/files/file_descriptor.hpp"
#include "platform/files/url.hpp"

struct stat;

namespace platform {

class HeldItem;

/// Identifies a file on this machine; its hard links share it. The system may reuse it once the file is
/// removed and closed.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;

  auto operator<=>(const FileIdentity&) const =
      default;  // NOLINT(modernize-use-nullptr): the compiler's own text
};

FileIdentity identityOf(const struct stat& status);
/// Nothing, with `errno`, on failure.
std::optional<FileIdentity> identityOf(const FileDescriptor& file);

/// The status of an open file. Throws `SystemError` naming `path`.
struct stat statusOf(const FileDescriptor& file, const std::string& path);

enum class ItemKind { file, directory, link, special };

struct ItemStatus {
  ItemKind kind;
  FileIdentity identity;
  std::uint64_t size;
  bool isExecutable;  ///< by its owner, its group or others
  bool hasHardLinks;  ///< a file with more than one name
};

ItemStatus itemStatus(const struct stat& status);

/// An item as a listing of its directory gives it.
struct ListedItem : ItemStatus {
  std::string name;
};

struct Entry;

/// An open directory, through which its items are accessed without following links and without blocking on a
/// FIFO or device. Copies share the descriptor. Failures are thrown as `SystemError`.
class Directory {
 public:
  enum class Links { followed, refused };

  /// `path` is only shown in messages.
  Directory(FileDescriptor descriptor, std::string path)
      : state_(std::make_shared<const State>(State{std::move(descriptor), std::move(path)})) {}

  /// `links` applies to the last component only.
  static Directory open(const URL& url, Links links);
  /// False if no item, not even a dangling link, exists at `url`.
  static bool isThere(const URL& url);

  Entry entry(std::string name) const;
  Directory subdirectory(const std::string& name) const;

  /// The status of an item; a link's own, not its target's. Nothing if the item does not exist.
  std::optional<ItemStatus> statusOf(const std::string& name) const;
  /// The kind of an item; nothing if it does not exist.
  std::optional<ItemKind> kindOf(const std::string& name) const;
  std::string linkTarget(const std::string& name) const;

  /// All names but "." and "..", in the file system's order.
  std::vector<std::string> names() const;
  /// All items, sorted by name.
  std::vector<ListedItem> entries() const;

  const std::string& path() const noexcept { return state_->path; }
  /// The path of the item `name`; the directory's own for ".".
  std::string pathOf(const std::string& name) const;
  const FileDescriptor& descriptor() const noexcept { return state_->descriptor; }
  /// For a system call.
  int get() const noexcept { return state_->descriptor.get(); }

 private:
  struct State {
    FileDescriptor descriptor;
    std::string path;
  };
  std::shared_ptr<const State> state_;
};

/// A name in an open directory, one component. An item of that name may or may not exist.
struct Entry {
  Directory directory;
  std::string name;

  /// The entry for the item at `url`, after standardizing its path: the parent of "X/." is the parent of X.
  /// Throws `SystemError`, also for the root, which has no parent.
  static Entry at(const URL& url);

  std::string path() const { return directory.pathOf(name); }

  /// The status of the item; a link's own, not its target's. Throws `SystemError`.
  struct stat status() const;
  /// Nothing, with `errno`, if the item does not exist or cannot be examined.
  std::optional<FileIdentity> identity() const;

  /// Opens the item with the flags of `open(2)`, without following a link and without blocking on a FIFO or
  /// device. Throws `SystemError`.
  FileDescriptor open(int flags, unsigned mode = 0) const;
};

/// Whether two entries are in one directory; false if that cannot be found out.
bool areInOneDirectory(const Entry& one, const Entry& other);

/// The absolute location of the item that `url` leads to, with all links resolved. Nothing, with the reason
/// in `errno`, when the item does not exist or cannot be reached.
std::optional<URL> resolvingLinks(const URL& url);

/// Renames unless the new name exists. Returns 0, or the error number with nothing changed.
int renameExclusively(const Entry& from, const Entry& to);

/// Exchanges two names atomically. Returns 0, or the error number with nothing changed; `ENOTSUP` if the file
/// system cannot do that.
int exchangeNames(const Entry& one, const Entry& other);

/// Removes a file, link or tree. Throws `SystemError`, also when the tree contains a mount point or `spared`;
/// neither of those, nor anything in them, is removed. The item is compared with `spared` before it is
/// removed, each directory once it is open. Neither descriptors nor stack grow with the depth.
void removeTree(const Entry& entry, const HeldItem* spared = nullptr);

}  // namespace platform
