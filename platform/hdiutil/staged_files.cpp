#include "platform/hdiutil/staged_files.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/error.hpp"
#include "platform/foundation/uuid.hpp"
#include "platform/hdiutil/disk.hpp"

namespace platform::hdiutil {
namespace {

Directory makeDirectory(const Entry& entry) {
  if (::mkdirat(entry.directory.get(), entry.name.c_str(), 0700) != 0)
    throw SystemError("A directory for the files of the volume could not be created", errno);
  return entry.directory.subdirectory(entry.name);
}

}  // namespace

StagedFiles::StagedFiles(const Directory& parent)
    : entry_(parent.entry("files-" + UUID().uuidString())), directory_(makeDirectory(entry_)) {}

StagedFiles::~StagedFiles() {
  // What remains is removed with its parent.
  bestEffort([this] { removeTree(entry_); });
}

void StagedFiles::write(std::size_t number, std::uint64_t offset, std::span<const char> bytes) {
  if (!open_.isOpen() || openNumber_ != number) {
    close();
    open_ = file(number).open(O_WRONLY | O_CREAT, 0600);
    openNumber_ = number;
  }
  writeAt(open_, offset, bytes);
}

void StagedFiles::close() {
  if (open_.isOpen())
    open_.close(file(openNumber_).path());
}

}  // namespace platform::hdiutil
