#include "rehearse/proof/reversible_file.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace rehearse {
namespace {

void writeAll(int file, std::uint64_t offset, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (count <= 0)
      throw std::system_error(errno, std::generic_category(), "a disk's file cannot be written");
    offset += static_cast<std::uint64_t>(count);
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

}  // namespace

ReversibleFile::ReversibleFile(const std::filesystem::path& path)
    : file_(::open(path.c_str(), O_RDWR | O_CLOEXEC)), size_(std::filesystem::file_size(path)) {
  if (!file_.isOpen())
    throw std::system_error(errno, std::generic_category(), path.native());
}

std::string ReversibleFile::read(std::uint64_t offset, std::size_t count) const {
  const std::uint64_t present = size_ - std::min(offset, size_);
  std::string bytes(std::min<std::uint64_t>(count, present), '\0');
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t part =
        ::pread(file_.get(), bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
    if (part <= 0)
      throw std::system_error(errno, std::generic_category(), "a disk's file cannot be read");
    done += static_cast<std::size_t>(part);
  }
  return bytes;
}

void ReversibleFile::write(std::uint64_t offset, std::string_view bytes) {
  if (offset > size_ || bytes.size() > size_ - offset)
    throw std::out_of_range("a write behind the end of a disk");
  replaced_.push_back({offset, read(offset, bytes.size())});
  writeAll(file_.get(), offset, bytes);
}

void ReversibleFile::takeBack(std::size_t writes) {
  for (; replaced_.size() > writes; replaced_.pop_back())
    writeAll(file_.get(), replaced_.back().offset, replaced_.back().bytes);
}

}  // namespace rehearse
