#include <unistd.h>

#include "platform/files/file_descriptor.hpp"
#include "platform/foundation/error.hpp"

namespace platform {
namespace {

[[noreturn]] void throwNotSaved(std::string_view item, int errorNumber) {
  throw SystemError(quoted(item) + " could not be saved to the disk", errorNumber);
}

}  // namespace

void syncFile(const FileDescriptor& file, std::string_view item) {
  if (uninterrupted([&] { return ::fsync(file.get()); }) != 0)
    throwNotSaved(item, errno);
}

void syncDirectory(const FileDescriptor& directory, std::string_view item) {
  // EINVAL: this file system cannot sync a directory by itself.
  if (uninterrupted([&] { return ::fsync(directory.get()); }) != 0 && errno != EINVAL)
    throwNotSaved(item, errno);
}

// The whole file system: opening each file of the tree would take longer.
void syncTree(const FileDescriptor& directory, const URL& item) {
  if (uninterrupted([&] { return ::syncfs(directory.get()); }) != 0)
    throwNotSaved(item.path(), errno);
}

}  // namespace platform
