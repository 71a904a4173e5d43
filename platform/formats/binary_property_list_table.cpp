#include "platform/formats/binary_property_list_table.hpp"

#include "platform/formats/bytes.hpp"
#include "platform/formats/property_list_refusal.hpp"

namespace platform {
namespace {

using Kind = BinaryPropertyListObject::Kind;

constexpr std::string_view kHeader = "bplist00";
constexpr std::size_t kTrailerSize = 32;
constexpr std::uint64_t kLengthFollows = 0xF;
constexpr std::uint64_t kWidestNumber = 8;

[[noreturn]] void refuseObject() {
  refusePropertyList("one of its objects is damaged");
}

/// Takes the first `size` bytes off `rest`.
std::string_view take(std::string_view& rest, std::uint64_t size) {
  const auto taken = partOf(rest, 0, size);
  if (!taken)
    refuseObject();
  rest.remove_prefix(size);
  return *taken;
}

/// The number of elements of an object that has `low` in its first byte, where 15 announces an integer
/// object.
std::uint64_t takeLength(std::string_view& rest, std::uint64_t low) {
  if (low != kLengthFollows)
    return low;
  const std::uint64_t marker = bigEndian(take(rest, 1));
  if (marker < 0x10 || marker > 0x13)
    refuseObject();
  return bigEndian(take(rest, std::uint64_t{1} << (marker & 0xFU)));
}

std::string_view takeElements(std::string_view& rest, std::uint64_t low, std::uint64_t elementSize) {
  const std::uint64_t length = takeLength(rest, low);
  if (length > rest.size() / elementSize)
    refuseObject();
  return take(rest, length * elementSize);
}

}  // namespace

BinaryPropertyListTable::BinaryPropertyListTable(std::string_view bytes) {
  if (bytes.size() < kHeader.size() + kTrailerSize || !bytes.starts_with(kHeader))
    refusePropertyList("it is no complete binary list of a known version");
  const std::size_t end = bytes.size() - kTrailerSize;
  const std::string_view trailer = bytes.substr(end);
  offsetSize_ = bigEndian(trailer.substr(6, 1));
  referenceSize_ = bigEndian(trailer.substr(7, 1));
  count_ = bigEndian(trailer.substr(8, 8));
  root_ = bigEndian(trailer.substr(16, 8));
  const std::uint64_t begin = bigEndian(trailer.substr(24, 8));
  const bool sizesAreKnown = offsetSize_ >= 1 && offsetSize_ <= kWidestNumber && referenceSize_ >= 1 &&
                             referenceSize_ <= kWidestNumber;
  const bool fits = sizesAreKnown && begin >= kHeader.size() && begin <= end &&
                    count_ <= (end - begin) / offsetSize_ && root_ < count_;
  if (!fits)
    refusePropertyList("its table of objects is damaged");
  bytes_ = bytes.substr(0, begin);
  offsets_ = bytes.substr(begin, count_ * offsetSize_);
}

BinaryPropertyListObject BinaryPropertyListTable::object(std::uint64_t index) const {
  const std::uint64_t offset = bigEndian(offsets_.substr(index * offsetSize_, offsetSize_));
  if (offset < kHeader.size() || offset >= bytes_.size())
    refuseObject();
  std::string_view rest = bytes_.substr(offset);
  const std::uint64_t marker = bigEndian(take(rest, 1));
  const std::uint64_t low = marker & 0xFU;
  const auto kind = static_cast<Kind>(marker >> 4U);
  switch (kind) {
    case Kind::constant:
      if (low == 8 || low == 9)
        return {kind, {}, low == 9};
      break;
    case Kind::integer:
      if (low <= 4)
        return {kind, take(rest, std::uint64_t{1} << low)};
      break;
    case Kind::real:
      if (low == 2 || low == 3)
        return {kind, take(rest, std::uint64_t{1} << low)};
      break;
    case Kind::date:
      if (low == 3)
        return {kind, take(rest, kWidestNumber)};
      break;
    case Kind::identifier:
      if (low < kWidestNumber)
        return {kind, take(rest, low + 1)};
      break;
    case Kind::data:
    case Kind::ascii:
      return {kind, takeElements(rest, low, 1)};
    case Kind::utf16:
      return {kind, takeElements(rest, low, 2)};
    case Kind::array:
      return {kind, takeElements(rest, low, referenceSize_)};
    case Kind::dictionary:
      return {kind, takeElements(rest, low, 2 * referenceSize_)};
  }
  refusePropertyList("it holds an object of an unknown kind");
}

std::uint64_t BinaryPropertyListTable::reference(const BinaryPropertyListObject& container,
                                                 std::uint64_t position) const {
  const std::uint64_t index = bigEndian(container.bytes.substr(position * referenceSize_, referenceSize_));
  if (index >= count_)
    refuseObject();
  return index;
}

}  // namespace platform
