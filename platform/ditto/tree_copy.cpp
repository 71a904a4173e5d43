#include "platform/ditto/tree_copy.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "platform/ditto/directory_copy.hpp"
#include "platform/ditto/file_copy.hpp"
#include "platform/ditto/hard_link_table.hpp"
#include "platform/foundation/error.hpp"
#include "platform/processes/worker_pool.hpp"

namespace platform::ditto {
namespace {

// Enough to keep the processors and the disk busy at the same time.
constexpr std::size_t kThreads = 4;
constexpr std::size_t kLongestQueue = 32;
// A longer path is cut at its beginning, so that neither messages nor the memory per directory grow with the
// depth.
constexpr std::size_t kLongestPathInMessages = 4096;

/// A directory whose copy exists, empty, and is still to be filled.
struct PendingDirectory {
  std::string name;
  FileIdentity copy;
};

/// A directory on the path from the root to the current directory, including both.
struct Level {
  FileIdentity source;
  FileIdentity copy;
  std::size_t pathLength;  ///< of its parent
  std::vector<PendingDirectory> directories;
};

FileIdentity createDirectory(const Entry& copy) {
  if (::mkdirat(copy.directory.get(), copy.name.c_str(), S_IRWXU) != 0)
    throw SystemError(quoted(copy.path()) + " could not be created", errno);
  return identityOf(copy.status());
}

[[noreturn]] void refuseInside(const Entry& source, const Entry& copy) {
  throw Error(quoted(copy.path()) + " is inside " + quoted(source.path()) + " and cannot be its copy.");
}

/// Throws when the destination is below the source, before anything is created.
void requireOutside(const Entry& source, const struct stat& status, const Entry& copy) {
  FileDescriptor directory = copy.directory.entry(".").open(O_PATH | O_DIRECTORY);
  FileIdentity place = identityOf(statusOf(directory, copy.path()));
  while (place != identityOf(status)) {
    FileDescriptor above = FileDescriptor::tryOpenAt(directory, "..", O_PATH | O_DIRECTORY);
    if (!above.isOpen())
      return;  // not permitted; the walk still notices the destination when it comes to it
    directory = std::move(above);
    const FileIdentity next = identityOf(statusOf(directory, copy.path()));
    if (next == place)
      return;
    place = next;
  }
  refuseInside(source, copy);
}

/// Walks the tree without recursion, with one directory and its copy open besides those in which files are
/// still being copied. All entries of a directory are created before its subdirectories are filled, so that
/// it is finished early.
class TreeCopy {
 public:
  TreeCopy(const Entry& source, const Entry& copy)
      : source_(source), copy_(copy), pool_(kThreads, kLongestQueue) {}

  void run() {
    // An unreadable source is reported before anything is created.
    static_cast<void>(source_.open(O_RDONLY | O_DIRECTORY));
    copyIdentity_ = createDirectory(copy_);
    descend(source_, copy_, copyIdentity_, 0);
    while (!levels_.empty()) {
      if (levels_.back().directories.empty()) {
        ascend();
        continue;
      }
      const PendingDirectory next = std::move(levels_.back().directories.back());
      levels_.back().directories.pop_back();
      const auto above = current_;
      const std::size_t length = path_.size();
      path_ += '/' + next.name;
      descend(above->source(next.name), above->copy(next.name), next.copy, length);
    }
    pool_.finish();
  }

 private:
  std::string pathInMessages(const Entry& root) const {
    if (path_.size() <= kLongestPathInMessages)
      return root.path() + path_;
    return root.path() + "/..." + path_.substr(path_.find('/', path_.size() - kLongestPathInMessages));
  }

  std::shared_ptr<DirectoryCopy> open(const Entry& source, const Entry& copy, int flags) const {
    return std::make_shared<DirectoryCopy>(
        Directory(source.open(flags | O_DIRECTORY), pathInMessages(source_)),
        Directory(copy.open(flags | O_DIRECTORY), pathInMessages(copy_)));
  }

  [[noreturn]] void failMoved() const {
    throw Error(quoted(pathInMessages(source_)) + " or its copy was moved while it was being copied.");
  }

  void descend(const Entry& source, const Entry& copy, const FileIdentity& createdCopy,
               std::size_t lengthAbove) {
    current_ = open(source, copy, O_RDONLY);
    if (current_->copyIdentity() != createdCopy)
      failMoved();
    levels_.push_back({current_->sourceIdentity(), createdCopy, lengthAbove, {}});
    copyEntries();
  }

  void ascend() {
    path_.resize(levels_.back().pathLength);
    levels_.pop_back();
    if (levels_.empty())
      return;
    current_ = open(current_->source(".."), current_->copy(".."), O_PATH);
    if (current_->sourceIdentity() != levels_.back().source ||
        current_->copyIdentity() != levels_.back().copy)
      failMoved();
  }

  void copyEntries() {
    const Entry source = current_->source(".");
    DirectoryReader reader(source.open(O_RDONLY | O_DIRECTORY));
    for (auto names = nextNames(reader, source.path()); !names.empty();
         names = nextNames(reader, source.path())) {
      for (const std::string& name : names)
        copyEntry(name);
    }
    std::ranges::reverse(levels_.back().directories);  // they are taken from the back
    current_->leave();
  }

  void copyEntry(const std::string& name) {
    const Entry source = current_->source(name);
    const Entry copy = current_->copy(name);
    const struct stat status = source.status();
    if (S_ISDIR(status.st_mode))
      addDirectory(source, status, copy);
    else if (status.st_nlink > 1)
      copyFileWithSeveralNames(source, status, copy);
    else if (S_ISREG(status.st_mode))
      addJob(name);
    else
      copyFileOrLink(source, status, copy);
  }

  void addDirectory(const Entry& source, const struct stat& status, const Entry& copy) {
    if (identityOf(status) == copyIdentity_)
      refuseInside(source_, copy_);
    levels_.back().directories.push_back({source.name, createDirectory(copy)});
  }

  void addJob(const std::string& name) {
    current_->enter();
    pool_.submit([directory = current_, name] {
      copyFile(directory->source(name), directory->copy(name));
      directory->leave();
    });
  }

  /// Not a job of the pool: the first copy must exist before the other names can be linked to it.
  void copyFileWithSeveralNames(const Entry& source, const struct stat& status, const Entry& copy) {
    const FileIdentity identity = identityOf(status);
    if (links_.contains(identity)) {
      linkCopy(copy_, links_.take(identity), copy);
    } else {
      copyFileOrLink(source, status, copy);
      links_.add(identity, status.st_nlink,
                 {(path_ + '/' + source.name).substr(1), identityOf(copy.status())});
    }
  }

  const Entry& source_;
  const Entry& copy_;
  FileIdentity copyIdentity_;
  std::string path_;  ///< of the current directory below the root: empty, or a slash before each name
  std::vector<Level> levels_;
  std::shared_ptr<DirectoryCopy> current_;
  HardLinkTable links_;
  WorkerPool pool_;
};

/// The item at `url`, or the item at the end of the links when it is a symbolic link.
URL resolved(const URL& url) {
  struct stat status {};
  if (::lstat(url.path().c_str(), &status) != 0 || !S_ISLNK(status.st_mode))
    return url;
  const std::optional<URL> target = resolvingLinks(url);
  if (!target)
    throw SystemError(quoted(url.path()) + " could not be examined", errno);
  return *target;
}

Entry entryAt(const URL& url) {
  const URL parent = url.deletingLastPathComponent();
  return {Directory(FileDescriptor::open(parent, O_PATH | O_DIRECTORY), parent.path()),
          url.lastPathComponent()};
}

}  // namespace

void copyTree(const URL& source, const URL& destination) {
  const URL origin = resolved(source);
  const Entry from = entryAt(origin);
  const Entry to = entryAt(destination);
  const struct stat status = from.status();
  if (S_ISLNK(status.st_mode))
    throw Error(quoted(origin.path()) + " changed while it was being copied.");
  if (!S_ISDIR(status.st_mode))
    return copyFileOrLink(from, status, to);
  requireOutside(from, status, to);
  TreeCopy(from, to).run();
}

}  // namespace platform::ditto
