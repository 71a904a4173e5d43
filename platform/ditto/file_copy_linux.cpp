#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/ditto/file_copy.hpp"
#include "platform/foundation/error.hpp"

namespace platform::ditto {
namespace {

constexpr std::size_t kBufferSize = std::size_t{128} * 1024;
constexpr off_t kStatusBlockSize = 512;

class ContentCopy {
 public:
  ContentCopy(const FileDescriptor& source, const std::string& sourcePath, const FileDescriptor& copy,
              const std::string& copyPath)
      : source_(source), copy_(copy), sourcePath_(sourcePath), copyPath_(copyPath) {}

  bool shareBlocks() const { return ::ioctl(copy_.get(), FICLONE, source_.get()) == 0; }

  void copyRange(off_t begin, off_t end) {
    off_t position = copyInKernel(begin, end);
    // Where the kernel cannot copy, copying through a buffer either succeeds or reports why.
    while (position < end)
      position += copyThroughBuffer(position, end);
  }

  /// Copies the ranges that contain data and writes nothing between them.
  void copyDataRanges(off_t size) {
    off_t position = 0;
    while (position < size) {
      const off_t begin = ::lseek(source_.get(), position, SEEK_DATA);
      if (begin < 0 && errno == ENXIO)
        break;  // only a hole is left
      if (begin < 0 || begin < position)
        return copyRange(position, size);  // the file system does not support SEEK_DATA
      const off_t hole = ::lseek(source_.get(), begin, SEEK_HOLE);
      const off_t end = hole < begin ? size : std::min(hole, size);
      copyRange(begin, end);
      position = std::max(begin, end);
    }
    if (::ftruncate(copy_.get(), size) != 0)
      throw SystemError(quoted(copyPath_) + " could not be written", errno);
  }

 private:
  /// Returns the position up to which the kernel has copied.
  off_t copyInKernel(off_t position, off_t end) const {
    off_t written = position;
    while (position < end) {
      const auto remaining = static_cast<std::size_t>(end - position);
      const auto count = uninterrupted(
          [&] { return ::copy_file_range(source_.get(), &position, copy_.get(), &written, remaining, 0); });
      if (count <= 0)
        break;
    }
    return written;
  }

  off_t copyThroughBuffer(off_t position, off_t end) const {
    // Uninitialized: only what a read has filled is used.
    std::array<char, kBufferSize> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init)
    const auto wanted =
        std::span(buffer).first(std::min(kBufferSize, static_cast<std::size_t>(end - position)));
    const auto offset = static_cast<std::uint64_t>(position);
    const std::optional<std::size_t> count = source_.readAt(offset, wanted);
    if (!count)
      throw SystemError(quoted(sourcePath_) + " could not be read", errno);
    if (*count < wanted.size())
      throw Error(quoted(sourcePath_) + " changed while it was being copied.");
    if (!copy_.writeAt(offset, wanted))
      throw SystemError(quoted(copyPath_) + " could not be written", errno);
    return static_cast<off_t>(*count);
  }

  const FileDescriptor& source_;
  const FileDescriptor& copy_;
  const std::string& sourcePath_;
  const std::string& copyPath_;
};

}  // namespace

void copyContent(const FileDescriptor& source, const std::string& sourcePath, const struct stat& status,
                 const FileDescriptor& copy, const std::string& copyPath) {
  ContentCopy content(source, sourcePath, copy, copyPath);
  if (status.st_size == 0 || content.shareBlocks())
    return;
  const bool holesArePossible = status.st_blocks < status.st_size / kStatusBlockSize;
  if (holesArePossible)
    content.copyDataRanges(status.st_size);
  else
    content.copyRange(0, status.st_size);
}

}  // namespace platform::ditto
