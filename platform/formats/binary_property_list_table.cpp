#include "platform/formats/binary_property_list_table.hpp"

#include "platform/formats/byte_reader.hpp"
#include "platform/formats/property_list.hpp"

namespace platform {
namespace {

using Kind = BinaryPropertyListObject::Kind;

constexpr std::string_view kItem = "one of its objects";
constexpr std::string_view kHeader = "bplist00";
constexpr std::size_t kTrailerSize = 32;
constexpr std::uint64_t kLengthFollows = 0xF;
constexpr std::uint64_t kWidestNumber = 8;

using ObjectReader = BasicByteReader<&PropertyListError::damaged>;

/// The number of elements of an object whose first byte ends in `low`; 15 means that an integer object
/// follows.
std::uint64_t readLength(ObjectReader& reader, std::uint64_t low) {
  if (low != kLengthFollows)
    return low;
  const std::uint8_t marker = reader.readU8();
  if (marker < 0x10 || marker > 0x13)
    reader.refuse();
  return reader.readNumber(std::uint64_t{1} << (marker & 0xFU));
}

std::string_view readElements(ObjectReader& reader, std::uint64_t low, std::uint64_t elementSize) {
  const std::uint64_t length = readLength(reader, low);
  if (length > reader.size() / elementSize)
    reader.refuse();
  return reader.readBytes(length * elementSize);
}

}  // namespace

BinaryPropertyListTable::BinaryPropertyListTable(std::string_view bytes) {
  if (bytes.size() < kHeader.size() + kTrailerSize || !bytes.starts_with(kHeader))
    throw PropertyListError::invalid("it is not a complete binary list of a known version");
  const std::size_t end = bytes.size() - kTrailerSize;
  const ObjectReader trailer(bytes.substr(end), "its trailer");
  offsetSize_ = trailer.u8(6);
  referenceSize_ = trailer.u8(7);
  count_ = trailer.u64(8);
  root_ = trailer.u64(16);
  const std::uint64_t begin = trailer.u64(24);
  const bool sizesAreKnown = offsetSize_ >= 1 && offsetSize_ <= kWidestNumber && referenceSize_ >= 1 &&
                             referenceSize_ <= kWidestNumber;
  const bool fits = sizesAreKnown && begin >= kHeader.size() && begin <= end &&
                    count_ <= (end - begin) / offsetSize_ && root_ < count_;
  if (!fits)
    throw PropertyListError::invalid("its table of objects is damaged");
  bytes_ = bytes.substr(0, begin);
  offsets_ = bytes.substr(begin, count_ * offsetSize_);
}

BinaryPropertyListObject BinaryPropertyListTable::object(std::uint64_t index) const {
  const std::uint64_t offset = ObjectReader(offsets_, kItem).number(index * offsetSize_, offsetSize_);
  ObjectReader reader(bytes_, kItem);
  if (offset < kHeader.size())
    reader.refuse();
  reader.skip(offset);
  const std::uint8_t marker = reader.readU8();
  const std::uint64_t low = marker & 0xFU;
  const auto kind = static_cast<Kind>(marker >> 4U);
  switch (kind) {
    case Kind::constant:
      if (low == 8 || low == 9)
        return {kind, {}, low == 9};
      break;
    case Kind::integer:
      if (low <= 4)
        return {kind, reader.readBytes(std::uint64_t{1} << low)};
      break;
    case Kind::real:
      if (low == 2 || low == 3)
        return {kind, reader.readBytes(std::uint64_t{1} << low)};
      break;
    case Kind::date:
      if (low == 3)
        return {kind, reader.readBytes(kWidestNumber)};
      break;
    case Kind::identifier:
      if (low < kWidestNumber)
        return {kind, reader.readBytes(low + 1)};
      break;
    case Kind::data:
    case Kind::ascii:
      return {kind, readElements(reader, low, 1)};
    case Kind::utf16:
      return {kind, readElements(reader, low, 2)};
    case Kind::array:
      return {kind, readElements(reader, low, referenceSize_)};
    case Kind::dictionary:
      return {kind, readElements(reader, low, 2 * referenceSize_)};
  }
  throw PropertyListError::invalid("it contains an object of an unknown kind");
}

std::uint64_t BinaryPropertyListTable::reference(const BinaryPropertyListObject& container,
                                                 std::uint64_t position) const {
  const ObjectReader references(container.bytes, kItem);
  const std::uint64_t index = references.number(position * referenceSize_, referenceSize_);
  if (index >= count_)
    references.refuse();
  return index;
}

}  // namespace platform
