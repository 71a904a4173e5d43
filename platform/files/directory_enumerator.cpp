#include "platform/files/directory_enumerator.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <utility>

#include "platform/files/directory_reader.hpp"
#include "platform/foundation/error.hpp"
#include "platform/foundation/text.hpp"

namespace platform {
namespace {

constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY;

bool isDirectory(const FileDescriptor& directory, const dirent& entry) {
  if (entry.d_type != DT_UNKNOWN)
    return entry.d_type == DT_DIR;
  struct stat status {};
  return ::fstatat(directory.get(), static_cast<const char*>(entry.d_name), &status, AT_SYMLINK_NOFOLLOW) ==
             0 &&
         S_ISDIR(status.st_mode);
}

}  // namespace

NSDirectoryEnumerator::NSDirectoryEnumerator(const URL& root, DirectoryEnumerationOptions options)
    : options_(options), root_(FileDescriptor::open(root, kDirectoryFlags)) {
  descend(FileDescriptor::openAt(root_, ".", kDirectoryFlags), root, {});
}

std::optional<URL> NSDirectoryEnumerator::nextObject() {
  if (std::exchange(descends_, false)) {
    const Level& level = levels_.back();
    const std::string name = level.items[level.next - 1].name;
    try {
      descend(FileDescriptor::openAt(current_, name, kDirectoryFlags | O_NOFOLLOW),
              level.url.appendingPathComponent(name), name);
    } catch (const SystemError&) {
      // Unreadable directories are skipped.
    }
  }
  while (!levels_.empty() && levels_.back().next == levels_.back().items.size())
    ascend();
  if (levels_.empty())
    return std::nullopt;
  Level& level = levels_.back();
  const Item& item = level.items[level.next++];
  descends_ = item.entered;
  return level.url.appendingPathComponent(item.name);
}

bool NSDirectoryEnumerator::has(DirectoryEnumerationOptions option) const {
  return (static_cast<unsigned>(options_) & static_cast<unsigned>(option)) != 0;
}

void NSDirectoryEnumerator::descend(FileDescriptor directory, const URL& url, const std::string& name) {
  const FileIdentity identity = identityOf(statusOf(directory, url.path()));
  levels_.push_back({url, name, identity, itemsOf(directory, url), 0});
  current_ = std::move(directory);
}

std::vector<NSDirectoryEnumerator::Item> NSDirectoryEnumerator::itemsOf(const FileDescriptor& directory,
                                                                        const URL& url) const {
  // Duplicated, because opening "." needs search permission too.
  DirectoryReader reader(FileDescriptor(::fcntl(directory.get(), F_DUPFD_CLOEXEC, 0)));
  if (!reader.isOpen())
    throw SystemError(quoted(url.path()) + " could not be read", reader.failure());
  std::vector<Item> items;
  // A failure ends the listing; the entries read so far are returned.
  while (const dirent* entry = reader.next()) {
    std::string name = static_cast<const char*>(entry->d_name);
    if (has(DirectoryEnumerationOptions::skipsHiddenFiles) && name[0] == '.')
      continue;
    const bool entered = !has(DirectoryEnumerationOptions::skipsSubdirectoryDescendants) &&
                         isDirectory(directory, *entry) && !isSkippedPackage(name);
    items.push_back({std::move(name), entered});
  }
  return items;
}

bool NSDirectoryEnumerator::isSkippedPackage(const std::string& name) const {
  return has(DirectoryEnumerationOptions::skipsPackageDescendants) &&
         lowercased(URL::fileURLWithPath("/" + name).pathExtension()) == "app";
}

void NSDirectoryEnumerator::ascend() {
  levels_.pop_back();
  // A parent that was removed or moved can no longer be entered; its own parent may be.
  if (!levels_.empty() && !stepUp())
    reopen();
}

bool NSDirectoryEnumerator::stepUp() {
  if (!current_.isOpen())
    return false;
  return take(FileDescriptor::tryOpenAt(current_, "..", kDirectoryFlags));
}

void NSDirectoryEnumerator::reopen() {
  FileDescriptor place = FileDescriptor::tryOpenAt(root_, ".", kDirectoryFlags);
  for (std::size_t depth = 1; depth < levels_.size(); ++depth)
    place = FileDescriptor::tryOpenAt(place, levels_[depth].name, kDirectoryFlags | O_NOFOLLOW);
  current_ = FileDescriptor();
  take(std::move(place));
}

bool NSDirectoryEnumerator::take(FileDescriptor directory) {
  if (!directory.isOpen() || identityOf(directory) != levels_.back().identity)
    return false;
  current_ = std::move(directory);
  return true;
}

}  // namespace platform
