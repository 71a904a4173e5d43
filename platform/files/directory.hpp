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

/// Tells a file from every other on this machine; its hard links share it. The system may reuse it once the
/// file is removed and closed.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;

  auto operator<=>(const FileIdentity&) const =
      default;  // NOLINT(modernize-use-nullptr): the compiler's own text
};

FileIdentity identityOf(const struct stat& status);
/// Nothing, with the reason in `errno`, when the system does not tell.
std::optional<FileIdentity> identityOf(const FileDescriptor& file);

/// The status of an open file. Throws `SystemError` naming `path`.
struct stat statusOf(const FileDescriptor& file, const std::string& path);

enum class ItemKind { file, directory, link, special };

struct ItemStatus {
  ItemKind kind;
  FileIdentity identity;
  std::uint64_t size;
  bool isExecutable;  ///< by anybody
  bool hasHardLinks;  ///< a file that has other names
};

ItemStatus itemStatus(const struct stat& status);

struct DirectoryEntry : ItemStatus {
  std::string name;
};

struct Entry;

/// An open directory, from which its items are reached without following links and without blocking on a
/// FIFO or device. Copies share the descriptor. Failures are `SystemError`.
class Directory {
 public:
  enum class Links { followed, refused };

  /// `path` is only shown in messages.
  Directory(FileDescriptor descriptor, std::string path)
      : state_(std::make_shared<const State>(State{std::move(descriptor), std::move(path)})) {}

  /// `links` is about the last component alone.
  static Directory open(const URL& url, Links links);
  /// False when nothing is at the location.
  static bool isThere(const URL& url);

  Entry entry(std::string name) const;
  Directory subdirectory(const std::string& name) const;

  /// Of the item itself, also where it is a link; nothing when there is none of that name.
  std::optional<ItemStatus> statusOf(const std::string& name) const;
  /// The kind of an item; nothing when there is none of that name.
  std::optional<ItemKind> kindOf(const std::string& name) const;
  std::string linkTarget(const std::string& name) const;

  /// All names but "." and "..", in the file system's order.
  std::vector<std::string> names() const;
  /// All items, sorted by name.
  std::vector<DirectoryEntry> entries() const;

  const std::string& path() const noexcept { return state_->path; }
  /// The directory's own path for ".".
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

  /// The entry for the item at `url`, whose path is brought into standard form for that: the parent of "X/."
  /// is the parent of X. Throws `SystemError`, also for the root, which no directory contains.
  static Entry at(const URL& url);

  std::string path() const { return directory.pathOf(name); }

  /// The status of the item itself, never of what a link leads to. Throws `SystemError`.
  struct stat status() const;
  /// Nothing, with the reason in `errno`, when there is no such item or the system does not tell.
  std::optional<FileIdentity> identity() const;

  /// Opens the item itself, never what a link leads to, without blocking on a FIFO or device. Takes the flags
  /// of `open(2)`. Throws `SystemError`.
  FileDescriptor open(int flags, unsigned mode = 0) const;
};

/// Renames unless something has the new name already. Returns 0, or the error number with nothing changed.
int renameExclusively(const Entry& from, const Entry& to);

/// Exchanges two names in one step. Returns 0, or the error number with nothing changed; `ENOTSUP` where the
/// file system has no such step.
int exchangeNames(const Entry& one, const Entry& other);

/// Removes a file, link or tree. Throws `SystemError`. Another file system that is mounted in the tree is a
/// failure; nothing in it is removed. So is `spared`, which is compared right before it would be opened or
/// unlinked. Uses a constant number of descriptors and no recursion, whatever the depth.
void removeTree(const Entry& entry, const HeldItem* spared = nullptr);

}  // namespace platform
