#include "tools/sign_bundle/mach_o_image.hpp"

#include <algorithm>
#include <limits>

#include "platform/formats/byte_reader.hpp"
#include "platform/foundation/error.hpp"
#include "platform/security/mach_o_format.hpp"
#include "tools/byte_writer.hpp"

namespace sign_bundle {
namespace {

namespace mach_o = platform::mach_o;
using tools::alignedUp;

constexpr std::size_t kSignatureCommandSize = 16;
constexpr std::size_t kCommandCountOffset = 16;
constexpr std::size_t kCommandsSizeOffset = 20;

[[noreturn]] void refuse(const std::string& reason) {
  throw platform::Error("The Mach-O image " + reason + ".");
}

/// The number of `size` bytes at `offset`.
std::uint64_t read(std::string_view bytes, std::size_t offset, std::size_t size, std::endian order) {
  return platform::ByteReader(bytes, "the Mach-O image", order).number(offset, size);
}

/// Offsets of the fields in a segment command and in its sections.
struct SegmentFields {
  std::size_t virtualSize, fileOffset, fileSize, sectionCount, sections, sectionSize, sectionFileOffset;
};
constexpr SegmentFields kFields32{28, 32, 36, 48, 56, 68, 40};
constexpr SegmentFields kFields64{32, 40, 48, 64, 72, 80, 48};

}  // namespace

MachOImage::MachOImage(std::string bytes) : bytes_(std::move(bytes)), firstSection_(bytes_.size()) {
  if (!isMachO(bytes_))
    refuse("has an unknown header");
  const auto magic = [&](std::endian order) { return read(bytes_, 0, 4, order); };
  order_ = magic(std::endian::big) == mach_o::kMagic32 || magic(std::endian::big) == mach_o::kMagic64
               ? std::endian::big
               : std::endian::little;
  wide_ = magic(order_) == mach_o::kMagic64;

  std::size_t offset = wide_ ? mach_o::kHeaderSize64 : mach_o::kHeaderSize32;
  commandsEnd_ = offset + number(kCommandsSizeOffset);
  for (std::uint32_t left = number(kCommandCountOffset); left > 0; --left) {
    const std::uint32_t size = number(offset + 4);
    if (size < 8 || offset > commandsEnd_ || size > commandsEnd_ - offset)
      refuse("has a load command that does not fit");
    readCommand(offset, size);
    offset += size;
  }
  if (offset != commandsEnd_)
    refuse("has load commands of an unexpected total size");
  cutSignatureOff();
}

bool MachOImage::isMachO(std::string_view bytes) {
  if (bytes.size() < mach_o::kHeaderSize32)
    return false;
  const std::uint64_t big = read(bytes, 0, 4, std::endian::big);
  const std::uint64_t little = read(bytes, 0, 4, std::endian::little);
  if (big == mach_o::kFatMagic || big == mach_o::kFatMagic64)
    return read(bytes, 4, 4, std::endian::big) <= mach_o::kMostArchitectures;
  const bool isBig = big == mach_o::kMagic32 || big == mach_o::kMagic64;
  const bool isLittle = little == mach_o::kMagic32 || little == mach_o::kMagic64;
  const std::uint64_t fileType = read(bytes, 12, 4, isBig ? std::endian::big : std::endian::little);
  return (isBig || isLittle) && fileType != mach_o::file_type::kObjectFile;
}

bool MachOImage::isMainProgram() const {
  return number(12) == mach_o::file_type::kExecutable;
}

std::uint32_t MachOImage::number(std::size_t offset) const {
  return static_cast<std::uint32_t>(read(bytes_, offset, 4, order_));
}

std::uint64_t MachOImage::word(std::size_t offset) const {
  return read(bytes_, offset, wide_ ? 8 : 4, order_);
}

void MachOImage::setNumber(std::size_t offset, std::uint32_t value) {
  tools::putNumber(bytes_, offset, value, order_);
}

void MachOImage::setWord(std::size_t offset, std::uint64_t value) {
  if (wide_)
    tools::putNumber(bytes_, offset, value, order_);
  else if (value > std::numeric_limits<std::uint32_t>::max())
    refuse("is too large to be signed");
  else
    setNumber(offset, static_cast<std::uint32_t>(value));
}

void MachOImage::readCommand(std::size_t offset, std::size_t size) {
  const std::uint32_t command = number(offset);
  if (command == (wide_ ? mach_o::command::kSegment64 : mach_o::command::kSegment32)) {
    readSegment(offset);
  } else if (command == mach_o::command::kCodeSignature) {
    if (size != kSignatureCommandSize || signatureCommand_ != 0)
      refuse("has an unusual signature command");
    signatureCommand_ = offset;
  }
}

void MachOImage::readSegment(std::size_t offset) {
  const SegmentFields& fields = wide_ ? kFields64 : kFields32;
  const Segment segment{offset, word(offset + fields.fileOffset), word(offset + fields.fileSize)};
  const std::string_view name(bytes_.c_str() + offset + 8);
  if (name.starts_with("__TEXT"))
    text_ = segment;
  else if (name.starts_with("__LINKEDIT"))
    linkEdit_ = segment;
  noteFirstSection(offset);
}

void MachOImage::noteFirstSection(std::size_t segment) {
  const SegmentFields& fields = wide_ ? kFields64 : kFields32;
  for (std::uint32_t index = 0; index < number(segment + fields.sectionCount); ++index) {
    const std::uint32_t place =
        number(segment + fields.sections + index * fields.sectionSize + fields.sectionFileOffset);
    if (place != 0)
      firstSection_ = std::min<std::size_t>(firstSection_, place);
  }
}

void MachOImage::cutSignatureOff() {
  if (linkEdit_.command == 0)
    refuse("has no link edit segment");
  if (linkEdit_.fileOffset > bytes_.size() || bytes_.size() - linkEdit_.fileOffset != linkEdit_.fileSize)
    refuse("does not end with its link edit segment");
  if (signatureCommand_ != 0) {
    const std::uint32_t start = number(signatureCommand_ + 8);
    if (start < linkEdit_.fileOffset || start > bytes_.size())
      refuse("has its signature outside the link edit segment");
    bytes_.resize(start);
  }
  bytes_.resize(alignedUp(bytes_.size(), kSignatureAlignment), '\0');
}

void MachOImage::appendSignatureCommand() {
  if (commandsEnd_ + kSignatureCommandSize > firstSection_)
    refuse("has no room for another load command");
  signatureCommand_ = commandsEnd_;
  commandsEnd_ += kSignatureCommandSize;
  setNumber(signatureCommand_, mach_o::command::kCodeSignature);
  setNumber(signatureCommand_ + 4, kSignatureCommandSize);
  setNumber(kCommandCountOffset, number(kCommandCountOffset) + 1);
  setNumber(kCommandsSizeOffset, number(kCommandsSizeOffset) + kSignatureCommandSize);
}

void MachOImage::reserveSignature(std::size_t size) {
  if (signatureCommand_ == 0)
    appendSignatureCommand();
  if (bytes_.size() > std::numeric_limits<std::uint32_t>::max() - size)
    refuse("is too large to be signed");
  setNumber(signatureCommand_ + 8, static_cast<std::uint32_t>(bytes_.size()));
  setNumber(signatureCommand_ + 12, static_cast<std::uint32_t>(size));

  const SegmentFields& fields = wide_ ? kFields64 : kFields32;
  const std::uint64_t fileSize = bytes_.size() + size - linkEdit_.fileOffset;
  const std::uint64_t memoryPage = cpuType() == mach_o::cpu::kArm64 ? 0x4000 : 0x1000;
  setWord(linkEdit_.command + fields.fileSize, fileSize);
  setWord(linkEdit_.command + fields.virtualSize, alignedUp(fileSize, memoryPage));
}

}  // namespace sign_bundle
