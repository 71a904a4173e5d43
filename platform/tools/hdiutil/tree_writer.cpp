#include "platform/tools/hdiutil/tree_writer.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "platform/foundation/error.hpp"
#include "platform/foundation/system_call.hpp"
#include "platform/tools/hdiutil/disk.hpp"
#include "platform/tools/hdiutil/image_error.hpp"

namespace platform::hdiutil {
namespace {

void require(int result, const std::string& path) {
  if (result == 0)
    return;
  const int reason = errno;
  if (reason == EEXIST)
    throw ImageError("it holds " + quoted(path) + " more than once.");
  throw SystemError(quoted(path) + " could not be written", reason);
}

}  // namespace

void TreeWriter::makeDirectory(const std::string& path) {
  require(::mkdirat(root_.get(), path.c_str(), 0700), path);
}

void TreeWriter::makeFile(const std::string& path) {
  close();
  open_ = FileDescriptor(uninterrupted([&] {
    return ::openat(root_.get(), path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  }));
  require(open_.isOpen() ? 0 : -1, path);
  openPath_ = path;
}

void TreeWriter::makeSymbolicLink(const std::string& path, const std::string& text) {
  if (text.find('\0') != std::string::npos)
    throw ImageError("a link in its volume is damaged.");
  require(::symlinkat(text.c_str(), root_.get(), path.c_str()), path);
}

void TreeWriter::makeHardLink(const std::string& existing, const std::string& path) {
  require(::linkat(root_.get(), existing.c_str(), root_.get(), path.c_str(), 0), path);
}

void TreeWriter::write(const std::string& path, std::uint64_t offset, std::span<const char> bytes) {
  if (!open_.isOpen() || openPath_ != path) {
    close();
    open_ = FileDescriptor::openAt(root_, path, O_WRONLY | O_NOFOLLOW);
    openPath_ = path;
  }
  writeAt(open_, offset, bytes);
}

void TreeWriter::setMetadata(const std::string& path, const EntryMetadata& metadata) {
  close();
  // Links are not changed by permissions, and no other entry of ours leads anywhere.
  if (!metadata.isSymbolicLink)
    require(::fchmodat(root_.get(), path.c_str(), metadata.permissions, 0), path);
  const std::array<timespec, 2> times{
      timespec{.tv_sec = 0, .tv_nsec = UTIME_OMIT},
      timespec{.tv_sec = metadata.modified.seconds, .tv_nsec = metadata.modified.nanoseconds}};
  require(::utimensat(root_.get(), path.c_str(), times.data(), AT_SYMLINK_NOFOLLOW), path);
}

void TreeWriter::close() {
  if (open_.isOpen())
    open_.close(openPath_);
}

}  // namespace platform::hdiutil
