#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include "platform/foundation/error.hpp"
#include "rehearse/proof/reversible_file.hpp"

namespace rehearse {
namespace {

void writeAt(const platform::FileDescriptor& file, std::uint64_t offset, std::string_view bytes) {
  if (!file.writeAt(offset, bytes))
    throw platform::SystemError("The content of a disk could not be written", errno);
}

bool isZero(std::string_view bytes) {
  return std::ranges::all_of(bytes, [](char byte) { return byte == 0; });
}

}  // namespace

ReversibleFile::ReversibleFile(const std::filesystem::path& path)
    : file_(platform::FileDescriptor::open(platform::URL::fileURLWithPath(path.native()), O_RDWR)),
      size_(std::filesystem::file_size(path)) {}

std::string ReversibleFile::read(std::uint64_t offset, std::size_t count) const {
  const std::uint64_t present = size_ - std::min(offset, size_);
  std::string bytes(std::min<std::uint64_t>(count, present), '\0');
  const auto done = file_.readAt(offset, bytes);
  if (!done)
    throw platform::SystemError("The content of a disk could not be read", errno);
  if (*done != bytes.size())
    throw platform::SystemError("The content of a disk is shorter than it was", EIO);
  return bytes;
}

void ReversibleFile::write(std::uint64_t offset, std::string_view bytes) {
  if (offset > size_ || bytes.size() > size_ - offset)
    throw std::out_of_range("a write behind the end of a disk");
  std::string before = read(offset, bytes.size());
  if (isZero(before))
    before = {};
  replaced_.push_back({offset, bytes.size(), std::move(before)});
  writeAt(file_, offset, bytes);
}

void ReversibleFile::takeBack(std::size_t writes) {
  for (; replaced_.size() > writes; replaced_.pop_back())
    restore(replaced_.back());
}

void ReversibleFile::restore(const Replaced& replaced) const {
  if (!replaced.bytes.empty())
    writeAt(file_, replaced.offset, replaced.bytes);
  // Where a file system has no holes, zeros are written.
  else if (::fallocate(file_.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
                       static_cast<off_t>(replaced.offset), static_cast<off_t>(replaced.size)) != 0)
    writeAt(file_, replaced.offset, std::string(replaced.size, '\0'));
}

}  // namespace rehearse
