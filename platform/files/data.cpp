#include "platform/files/data.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

#include "platform/files/directory.hpp"
#include "platform/files/system_files.hpp"
#include "platform/foundation/error.hpp"
#include "platform/foundation/uuid.hpp"

namespace platform {
namespace {

/// A temporary file beside the one to be written. The destructor removes it unless it has been renamed.
class TemporarySibling {
 public:
  TemporarySibling(const FileDescriptor& directory, std::string_view item)
      : directory_(directory), name_(".quorin-write-" + UUID().uuidString()), item_(item) {
    file_ = FileDescriptor::tryOpenAt(directory_, name_, O_WRONLY | O_CREAT | O_EXCL, 0666);
    if (!file_.isOpen())
      throw SystemError(quoted(item) + " could not be created", errno);
  }
  TemporarySibling(const TemporarySibling&) = delete;
  TemporarySibling& operator=(const TemporarySibling&) = delete;
  ~TemporarySibling() {
    // Entered after a failure, which is the one to report.
    if (!name_.empty())
      ::unlinkat(directory_.get(), name_.c_str(), 0);
  }

  FileDescriptor& file() { return file_; }

  void takeNameOf(const std::string& name) {
    if (uninterrupted(
            [&] { return ::renameat(directory_.get(), name_.c_str(), directory_.get(), name.c_str()); }) != 0)
      throw SystemError(quoted(item_) + " could not be replaced", errno);
    name_.clear();
  }

 private:
  const FileDescriptor& directory_;
  std::string name_;
  std::string_view item_;
  FileDescriptor file_;
};

}  // namespace

Data Data::contentsOf(const URL& url, DataReadingOptions options, std::size_t limit) {
  const FileDescriptor file = FileDescriptor::openForReading(url);
  std::string bytes;
  struct stat status {};
  if (::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode))
    bytes.reserve(std::min(static_cast<std::size_t>(status.st_size), limit));
  std::array<char, 65536> chunk;  // NOLINT(cppcoreguidelines-pro-type-member-init): read() fills it
  while (const std::size_t count = file.read(chunk.data(), chunk.size(), url.path())) {
    // Not st_size, which is 0 for files that the kernel generates, such as those in /proc.
    if (count > limit - bytes.size())
      throw Error(quoted(url.path()) + " could not be read: It is too large.");
    bytes.append(chunk.data(), count);
  }
  if (options == DataReadingOptions::uncached)
    dropFromCache(file);
  return Data(std::move(bytes));
}

void Data::write(const URL& to, DataWritingOptions) const {
  const char* path = systemPath(to);
  struct stat existing {};
  const bool exists = ::lstat(path, &existing) == 0;
  struct stat leadsTo {};
  if (exists && S_ISLNK(existing.st_mode) && ::stat(path, &leadsTo) == 0 && S_ISDIR(leadsTo.st_mode))
    existing = leadsTo;
  if (exists && !S_ISREG(existing.st_mode) && !S_ISLNK(existing.st_mode))
    throw SystemError(quoted(to.path()) + " could not be replaced",
                      S_ISDIR(existing.st_mode) ? EISDIR : EEXIST);

  const Entry entry = Entry::at(to);
  TemporarySibling sibling(entry.directory.descriptor(), to.path());
  if (exists && S_ISREG(existing.st_mode) && ::fchmod(sibling.file().get(), existing.st_mode & 0777U) != 0)
    throw SystemError(quoted(to.path()) + " could not be given its permissions", errno);
  sibling.file().writeAll(bytes_, to.path());
  syncFile(sibling.file(), to.path());
  sibling.file().close(to.path());
  sibling.takeNameOf(entry.name);
  syncDirectory(entry.directory.descriptor(), to.path());
}

}  // namespace platform
