#include "platform/hdiutil/staged_files.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/files/file_removal.hpp"
#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/error.hpp"
#include "platform/foundation/uuid.hpp"
#include "platform/hdiutil/disk.hpp"

namespace platform::hdiutil {

StagedFiles::StagedFiles(const FileDescriptor& parent)
    : parent_(parent), name_("files-" + UUID().uuidString()) {
  if (::mkdirat(parent.get(), name_.c_str(), 0700) != 0)
    throw SystemError("A directory for the files of the volume could not be created", errno);
  directory_ = FileDescriptor::openAt(parent, name_, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
}

StagedFiles::~StagedFiles() {
  // What stays goes with its parent.
  bestEffort([this] { removeTree(parent_, name_, name_); });
}

void StagedFiles::write(std::size_t number, std::uint64_t offset, std::span<const char> bytes) {
  if (!open_.isOpen() || openNumber_ != number) {
    close();
    open_ = FileDescriptor::openAt(directory_, nameOf(number), O_WRONLY | O_CREAT | O_NOFOLLOW, 0600);
    openNumber_ = number;
  }
  writeAt(open_, offset, bytes);
}

void StagedFiles::close() {
  if (open_.isOpen())
    open_.close(nameOf(openNumber_));
}

}  // namespace platform::hdiutil
