#include "tests/platform/foundation/binary_property_list_builder.hpp"

#include <bit>

namespace test {
namespace {

constexpr unsigned kReferenceSize = 4;
constexpr unsigned kOffsetSize = 5;

}  // namespace

std::string BinaryPropertyListBuilder::head(unsigned kind, std::size_t length) {
  const bool fits = length < 15;
  std::string bytes(1, static_cast<char>(kind | (fits ? length : 15)));
  return fits ? bytes : bytes + '\x12' + bigEndian(length, 4);
}

std::string BinaryPropertyListBuilder::references(const References& indices) {
  std::string bytes;
  for (const std::uint32_t index : indices)
    bytes += bigEndian(index, kReferenceSize);
  return bytes;
}

std::uint32_t BinaryPropertyListBuilder::real(double value) {
  return add('\x23' + bigEndian(std::bit_cast<std::uint64_t>(value), 8));
}

std::uint32_t BinaryPropertyListBuilder::utf16(std::u16string_view text) {
  std::string bytes = head(0x60, text.size());
  for (const char16_t unit : text)
    bytes += bigEndian(unit, 2);
  return add(bytes);
}

std::string BinaryPropertyListBuilder::finish(std::uint32_t root) const {
  std::string whole = bytes_;
  for (const std::size_t offset : offsets_)
    whole += bigEndian(offset, kOffsetSize);
  return whole + std::string(6, '\0') + bigEndian(kOffsetSize, 1) + bigEndian(kReferenceSize, 1) +
         bigEndian(offsets_.size(), 8) + bigEndian(root, 8) + bigEndian(bytes_.size(), 8);
}

}  // namespace test
