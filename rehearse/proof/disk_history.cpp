#include "rehearse/proof/disk_history.hpp"

#include <fcntl.h>

#include <array>
#include <bit>
#include <cerrno>

#include "platform/foundation/error.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

/// In the file before the bytes of a write; a flush has none.
struct Header {
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
};

using HeaderBytes = std::array<char, sizeof(Header)>;

}  // namespace

DiskHistory::DiskHistory(const fs::path& file, int flags)
    : name_(file.native()),
      file_(platform::FileDescriptor::open(platform::URL::fileURLWithPath(name_), flags, 0600)) {}

DiskHistory DiskHistory::create(const fs::path& file) {
  return {file, O_RDWR | O_CREAT | O_EXCL};
}

DiskHistory DiskHistory::open(const fs::path& file) {
  DiskHistory history(file, O_RDONLY);
  const std::uint64_t end = fs::file_size(file);
  while (history.size_ < end) {
    HeaderBytes bytes{};
    history.read(history.size_, bytes.data(), bytes.size());
    const auto header = std::bit_cast<Header>(bytes);
    history.size_ += bytes.size();
    if (header.size > end - history.size_)
      throw platform::Error(platform::quoted(history.name_) + " ends within a write.");
    if (header.size == 0)
      history.flushes_.push_back(history.writes());
    else
      history.extents_.push_back({header.offset, header.size, history.size_});
    history.size_ += header.size;
  }
  return history;
}

void DiskHistory::addWrite(std::uint64_t offset, std::string_view bytes) {
  const auto header = std::bit_cast<HeaderBytes>(Header{offset, bytes.size()});
  append({header.data(), header.size()});
  const std::uint64_t place = size_;
  append(bytes);
  extents_.push_back({offset, bytes.size(), place});
}

void DiskHistory::addFlush() {
  const auto header = std::bit_cast<HeaderBytes>(Header{});
  append({header.data(), header.size()});
  flushes_.push_back(writes());
}

DiskWrite DiskHistory::write(std::size_t index) const {
  const Extent& extent = extents_.at(index);
  DiskWrite write{.offset = extent.offset, .bytes = std::string(extent.size, '\0')};
  read(extent.place, write.bytes.data(), write.bytes.size());
  return write;
}

void DiskHistory::append(std::string_view bytes) {
  file_.writeAll(bytes, name_);
  size_ += bytes.size();
}

void DiskHistory::read(std::uint64_t place, char* bytes, std::size_t count) const {
  const auto done = file_.readAt(place, {bytes, count});
  if (!done)
    throw platform::SystemError(platform::quoted(name_) + " could not be read", errno);
  if (*done != count)
    throw platform::Error(platform::quoted(name_) + " is shorter than it was.");
}

}  // namespace rehearse
