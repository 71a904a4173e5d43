#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "platform/files/directory_reader.hpp"
#include "platform/files/held_item.hpp"
#include "platform/files/system_files.hpp"
#include "platform/foundation/error.hpp"

namespace platform {
namespace {

constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;

/// A directory on the path from the item to the current one: its name in its parent, and the subdirectories
/// that are still to be removed.
struct Level {
  std::string name;
  FileIdentity identity;
  std::vector<std::string> directories;
};

class TreeRemoval {
 public:
  TreeRemoval(const Entry& item, const HeldItem* spared) : item_(item), spared_(spared) {}

  void run() {
    const auto& [directory, name] = item_;
    const FileDescriptor& parent = directory.descriptor();
    if (spared_ != nullptr && spared_->isAt(item_))
      fail(name, EBUSY);
    if (removeUnlessDirectory(parent, name))
      return;
    descend(parent, name);
    while (!levels_.empty()) {
      if (levels_.back().directories.empty()) {
        ascend(parent);
      } else {
        const std::string next = std::move(levels_.back().directories.back());
        levels_.back().directories.pop_back();
        descend(current_, next);
      }
    }
  }

 private:
  [[noreturn]] void fail(const std::string& name, int reason) const {
    const std::string place = levels_.empty() ? std::string() : " because of " + quoted(name) + " in it";
    throw SystemError(quoted(item_.path()) + " could not be removed" + place, reason);
  }

  /// False when `name` is a directory, which is then still there.
  bool removeUnlessDirectory(const FileDescriptor& directory, const std::string& name) const {
    if (tryUnlink(directory, name, 0))
      return true;
    const int reason = errno;
    if (!isRefusedAsDirectory(directory, name, reason))
      fail(name, reason);
    return false;
  }

  /// False with `errno` on failure.
  static bool tryUnlink(const FileDescriptor& directory, const std::string& name, int flags) {
    return uninterrupted([&] { return ::unlinkat(directory.get(), name.c_str(), flags); }) == 0;
  }

  /// Enters a directory of the tree, after giving its owner full access if it forbids changes.
  void descend(const FileDescriptor& directory, const std::string& name) {
    FileDescriptor opened = FileDescriptor::tryOpenAt(directory, name, kDirectoryFlags);
    if (!opened.isOpen() && errno == EACCES &&
        ::fchmodat(directory.get(), name.c_str(), S_IRWXU, AT_SYMLINK_NOFOLLOW) == 0)
      opened = FileDescriptor::tryOpenAt(directory, name, kDirectoryFlags);
    struct stat status {};
    if (!opened.isOpen() || ::fstat(opened.get(), &status) != 0)
      fail(name, errno);
    // By now the name may refer to another item.
    if (spared_ != nullptr && spared_->is(identityOf(status)))
      fail(name, EBUSY);
    // A mount point: another file system is not part of the tree.
    if (!levels_.empty() && identityOf(status).device != levels_.back().identity.device)
      fail(name, EBUSY);
    // If this is not permitted, removing the contents reports it.
    if ((status.st_mode & S_IRWXU) != S_IRWXU)
      static_cast<void>(::fchmod(opened.get(), S_IRWXU));
    levels_.push_back({name, identityOf(status), {}});
    current_ = std::move(opened);
    removeFiles();
  }

  void removeFiles() {
    for (std::string& name : names()) {
      if (!removeUnlessDirectory(current_, name))
        levels_.back().directories.push_back(std::move(name));
    }
  }

  /// All names, before the first is removed: some file systems would skip entries otherwise.
  std::vector<std::string> names() const {
    DirectoryReader reader(FileDescriptor(::fcntl(current_.get(), F_DUPFD_CLOEXEC, 0)));
    std::vector<std::string> names;
    while (const dirent* entry = reader.next())
      names.emplace_back(static_cast<const char*>(entry->d_name));
    if (reader.failure() != 0)
      fail(levels_.back().name, reader.failure());
    return names;
  }

  void ascend(const FileDescriptor& parent) {
    const std::string name = std::move(levels_.back().name);
    levels_.pop_back();
    FileDescriptor above;
    if (!levels_.empty()) {
      above = FileDescriptor::tryOpenAt(current_, "..", kDirectoryFlags);
      const std::optional<FileIdentity> identity =
          above.isOpen() ? identityOf(above) : std::optional<FileIdentity>();
      if (!identity)
        fail(name, errno);
      // The directory was moved while it was being emptied: its new parent must not be removed.
      if (*identity != levels_.back().identity)
        fail(name, ESTALE);
    }
    const FileDescriptor& holder = levels_.empty() ? parent : above;
    if (!tryUnlink(holder, name, AT_REMOVEDIR))
      fail(name, errno);
    current_ = std::move(above);
  }

  const Entry& item_;
  const HeldItem* spared_;
  FileDescriptor current_;
  std::vector<Level> levels_;
};

}  // namespace

void removeTree(const Entry& entry, const HeldItem* spared) {
  TreeRemoval(entry, spared).run();
}

}  // namespace platform
