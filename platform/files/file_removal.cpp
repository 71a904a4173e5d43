#include "platform/files/file_removal.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <vector>

#include "platform/foundation/error.hpp"
#include "platform/foundation/system_call.hpp"

namespace platform {
namespace {

constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;

struct CloseDirectory {
  void operator()(DIR* stream) const noexcept { ::closedir(stream); }
};

/// A directory between the item and the place of work: its name in the one above, what tells it from any
/// other, and the directories in it that are still to be removed.
struct Level {
  std::string name;
  dev_t device;
  ino_t inode;
  std::vector<std::string> directories;
};

class TreeRemoval {
 public:
  TreeRemoval(std::string_view item, const HeldItem* spared) : item_(item), spared_(spared) {}

  void run(const FileDescriptor& parent, const std::string& name) {
    if (spared_ != nullptr && spared_->isAt(parent, name))
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
    throw SystemError(quoted(item_) + " could not be removed" + place, reason);
  }

  /// False when `name` is a directory, which then still stands.
  bool removeUnlessDirectory(const FileDescriptor& directory, const std::string& name) const {
    if (tryUnlink(directory, name, 0))
      return true;
    if (errno != EISDIR)
      fail(name, errno);
    return false;
  }

  /// False with `errno` on failure.
  static bool tryUnlink(const FileDescriptor& directory, const std::string& name, int flags) {
    return uninterrupted([&] { return ::unlinkat(directory.get(), name.c_str(), flags); }) == 0;
  }

  /// Goes into a directory of the tree, opening it up where it forbids changes.
  void descend(const FileDescriptor& directory, const std::string& name) {
    const auto open = [&] { return ::openat(directory.get(), name.c_str(), kDirectoryFlags | O_CLOEXEC); };
    FileDescriptor opened(uninterrupted(open));
    if (!opened.isOpen() && errno == EACCES &&
        ::fchmodat(directory.get(), name.c_str(), S_IRWXU, AT_SYMLINK_NOFOLLOW) == 0)
      opened = FileDescriptor(uninterrupted(open));
    struct stat status {};
    if (!opened.isOpen() || ::fstat(opened.get(), &status) != 0)
      fail(name, errno);
    // The name may have become another item's since it was looked at.
    if (spared_ != nullptr && spared_->is(status))
      fail(name, EBUSY);
    // What somebody has mounted in the tree is not part of it.
    if (!levels_.empty() && status.st_dev != levels_.back().device)
      fail(name, EBUSY);
    // Where that is not allowed, removing what is in it says so.
    if ((status.st_mode & S_IRWXU) != S_IRWXU)
      static_cast<void>(::fchmod(opened.get(), S_IRWXU));
    levels_.push_back({name, status.st_dev, status.st_ino, {}});
    current_ = std::move(opened);
    removeFiles();
  }

  void removeFiles() {
    FileDescriptor duplicate(::fcntl(current_.get(), F_DUPFD_CLOEXEC, 0));
    const std::unique_ptr<DIR, CloseDirectory> stream(::fdopendir(duplicate.get()));
    if (stream == nullptr)
      fail(levels_.back().name, errno);
    static_cast<void>(duplicate.release());  // the stream closes it
    while (true) {
      errno = 0;
      const dirent* entry = ::readdir(stream.get());  // NOLINT(concurrency-mt-unsafe): a stream of our own
      if (entry == nullptr)
        break;
      const std::string name = static_cast<const char*>(entry->d_name);
      if (name != "." && name != ".." && !removeUnlessDirectory(current_, name))
        levels_.back().directories.push_back(name);
    }
    if (errno != 0)
      fail(levels_.back().name, errno);
  }

  void ascend(const FileDescriptor& parent) {
    const std::string name = std::move(levels_.back().name);
    levels_.pop_back();
    FileDescriptor above;
    if (!levels_.empty()) {
      above = FileDescriptor(
          uninterrupted([&] { return ::openat(current_.get(), "..", kDirectoryFlags | O_CLOEXEC); }));
      struct stat status {};
      if (!above.isOpen() || ::fstat(above.get(), &status) != 0)
        fail(name, errno);
      // Somebody moved the directory while it was being emptied: what lies above it now is not ours to
      // remove.
      if (status.st_dev != levels_.back().device || status.st_ino != levels_.back().inode)
        fail(name, ESTALE);
    }
    const FileDescriptor& holder = levels_.empty() ? parent : above;
    if (!tryUnlink(holder, name, AT_REMOVEDIR))
      fail(name, errno);
    current_ = std::move(above);
  }

  std::string_view item_;
  const HeldItem* spared_;
  FileDescriptor current_;
  std::vector<Level> levels_;
};

}  // namespace

void removeTree(const FileDescriptor& directory, const std::string& name, std::string_view item,
                const HeldItem* spared) {
  TreeRemoval(item, spared).run(directory, name);
}

}  // namespace platform
