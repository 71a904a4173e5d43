#include "platform/hdiutil/udif_disk.hpp"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <utility>

#include "platform/foundation/error.hpp"
#include "platform/hdiutil/image_error.hpp"
#include "platform/hdiutil/seven_zip.hpp"

namespace platform::hdiutil {
namespace {

constexpr std::size_t kChunkSize = 1U << 18U;
constexpr int kPipeSize = 1 << 20;

const Bytef* octets(std::span<const char> bytes) {
  return reinterpret_cast<const Bytef*>(bytes.data());
}

std::uint32_t crc(std::uint32_t checksum, std::span<const char> bytes) {
  return static_cast<std::uint32_t>(::crc32(checksum, octets(bytes), static_cast<uInt>(bytes.size())));
}

}  // namespace

UdifDisk::UdifDisk(FileDescriptor image, UdifImage description, const FileDescriptor& directory)
    : image_(std::move(image)),
      description_(std::move(description)),
      kept_(namelessFile(directory)),
      pipe_(makePipe()),
      unpacker_(sevenZip(), {"x", "-tdmg", "-so", "-bse0", "-bsp0", kStandardInputPath},
                {image_.get(), pipe_.writer.get(), STDERR_FILENO}),
      chunk_(kChunkSize) {
  pipe_.writer = FileDescriptor();
  layOut();
}

UdifDisk::Pipe UdifDisk::makePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0)
    throw SystemError("The disk image could not be unpacked", errno);
  // If it fails, the pipe is only slower.
  static_cast<void>(::fcntl(ends[0], F_SETPIPE_SZ, kPipeSize));
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

void UdifDisk::layOut() {
  std::uint64_t end = 0;
  for (const UdifTable& table : description_.tables) {
    if (table.offset > end)
      stretches_.push_back({{table.offset - end, false, false}, false, false, nullptr});
    end = table.offset + table.length;
    bool isFirst = true;
    for (const UdifRun& run : table.runs) {
      if (run.length > 0)
        stretches_.push_back({run, true, std::exchange(isFirst, false), nullptr});
    }
    if (!isFirst)
      stretches_.back().endedTable = &table;
  }
}

void UdifDisk::read(std::uint64_t offset, std::span<char> buffer) {
  requireInside(offset, buffer.size());
  const std::uint64_t end = offset + buffer.size();
  if (end > frontier_)
    storeUpTo(end);
  requireKept(offset, end);
  readAt(kept_, offset, buffer);
}

void UdifDisk::take(std::uint64_t offset, std::span<char> buffer) {
  requireInside(offset, buffer.size());
  const std::uint64_t end = offset + buffer.size();
  if (offset > frontier_)
    storeUpTo(offset);
  if (offset < frontier_) {
    const std::uint64_t known = std::min(end, frontier_) - offset;
    requireKept(offset, offset + known);
    readAt(kept_, offset, buffer.first(known));
    buffer = buffer.subspan(known);
  }
  if (buffer.empty())
    return;
  const std::uint64_t begin = frontier_;
  next(buffer);
  markTaken(begin);
}

void UdifDisk::damaged(const char* reason) {
  damage_ = reason;
  throw ImageError(reason);
}

void UdifDisk::finish() {
  if (damage_ != nullptr)
    damaged(damage_);
  skip(size());
  char surplus = 0;
  if (pipe_.reader.read(&surplus, 1, "the disk image") != 0 || !unpacker_.succeeds())
    throw ImageError("its stored blocks are damaged");
  checkStoredBytes(description_.dataLength);
  if (description_.dataChecksum && *description_.dataChecksum != dataChecksum_)
    throw ImageError("it is damaged: its stored blocks do not match their checksum");
}

void UdifDisk::skip(std::uint64_t offset) {
  const std::uint64_t begin = frontier_;
  while (frontier_ < offset)
    next(std::span(chunk_).first(std::min<std::uint64_t>(chunk_.size(), offset - frontier_)));
  markTaken(begin);
}

void UdifDisk::markTaken(std::uint64_t begin) {
  if (begin == frontier_)
    return;
  if (!taken_.empty() && taken_.back().end == begin)
    taken_.back().end = frontier_;
  else
    taken_.push_back({begin, frontier_});
}

std::uint64_t UdifDisk::storedLength(std::uint64_t offset, std::uint64_t length) const {
  return storedBetween(offset, offset + length, 0, 0);
}

std::uint64_t UdifDisk::storedBetween(std::uint64_t begin, std::uint64_t end, std::size_t stretch,
                                      std::uint64_t position) const {
  std::uint64_t stored = 0;
  for (; stretch < stretches_.size() && position < end; ++stretch) {
    const UdifRun& run = stretches_[stretch].run;
    const std::uint64_t next = position + run.length;
    if (run.isStored && next > begin)
      stored += std::min(next, end) - std::max(position, begin);
    position = next;
  }
  return stored;
}

void UdifDisk::storeUpTo(std::uint64_t offset) {
  requireSpace(kept_, storedBetween(frontier_, offset, stretch_, frontier_ - stretchDone_));
  while (frontier_ < offset) {
    const auto most = std::min<std::uint64_t>({chunk_.size(), offset - frontier_, stretchLeft()});
    const auto bytes = std::span(chunk_).first(most);
    const bool isStored = stretches_.at(stretch_).run.isStored;
    const std::uint64_t position = frontier_;
    next(bytes);
    // The file reads as zeros where nothing was written.
    if (isStored && !isZero(bytes))
      writeAt(kept_, position, bytes);
  }
}

std::uint64_t UdifDisk::stretchLeft() const {
  return stretches_.at(stretch_).run.length - stretchDone_;
}

void UdifDisk::next(std::span<char> buffer) {
  while (!buffer.empty()) {
    const auto part = buffer.first(std::min<std::uint64_t>(buffer.size(), stretchLeft()));
    const Stretch& stretch = stretches_[stretch_];
    if (stretch.startsTable && stretchDone_ == 0)
      tableChecksum_ = 0;
    if (stretch.isUnpacked)
      unpack(part);
    else
      std::fill(part.begin(), part.end(), '\0');
    check(part);
    frontier_ += part.size();
    stretchDone_ += part.size();
    if (stretchLeft() == 0)
      endStretch();
    buffer = buffer.subspan(part.size());
  }
}

void UdifDisk::unpack(std::span<char> buffer) {
  while (!buffer.empty()) {
    const std::size_t count = pipe_.reader.read(buffer.data(), buffer.size(), "the disk image");
    if (count == 0)
      damaged("its stored blocks are damaged");
    buffer = buffer.subspan(count);
  }
}

void UdifDisk::check(std::span<const char> bytes) {
  const UdifRun& run = stretches_[stretch_].run;
  if (run.isInChecksum)
    tableChecksum_ = crc(tableChecksum_, bytes);
  if (description_.dataChecksum)
    checkStoredBytes(bytes.size());
}

void UdifDisk::endStretch() {
  const Stretch& stretch = stretches_[stretch_];
  if (stretch.endedTable != nullptr && stretch.endedTable->checksum &&
      *stretch.endedTable->checksum != tableChecksum_)
    damaged("it is damaged: the content of its blocks does not match their checksum");
  ++stretch_;
  stretchDone_ = 0;
}

void UdifDisk::checkStoredBytes(std::uint64_t most) {
  storedChunk_.resize(kChunkSize);
  most = std::min(most, description_.dataLength - dataChecked_);
  while (description_.dataChecksum && most > 0) {
    const auto bytes = std::span(storedChunk_).first(std::min<std::uint64_t>(storedChunk_.size(), most));
    readAt(image_, description_.dataOffset + dataChecked_, bytes);
    dataChecksum_ = crc(dataChecksum_, bytes);
    dataChecked_ += bytes.size();
    most -= bytes.size();
  }
}

void UdifDisk::requireKept(std::uint64_t begin, std::uint64_t end) const {
  const auto after =
      std::upper_bound(taken_.begin(), taken_.end(), begin,
                       [](std::uint64_t place, const Interval& taken) { return place < taken.end; });
  if (begin < end && after != taken_.end() && after->begin < end)
    throw ImageError("its volume is damaged: two of its files overlap");
}

}  // namespace platform::hdiutil
