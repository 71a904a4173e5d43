#include "tests/platform/foundation/binary_property_list_builder.hpp"

#include <bit>

namespace test {
namespace {

constexpr unsigned kReferenceSize = 4;
constexpr unsigned kOffsetSize = 5;

}  // namespace

std::string BinaryPropertyListBuilder::number(std::uint64_t value, unsigned size) {
  std::string bytes;
  for (unsigned shift = 8 * size; shift > 0; shift -= 8)
    bytes += static_cast<char>(value >> (shift - 8) & 0xFFU);
  return bytes;
}

std::string BinaryPropertyListBuilder::head(unsigned kind, std::size_t length) {
  const bool fits = length < 15;
  std::string bytes(1, static_cast<char>(kind | (fits ? length : 15)));
  return fits ? bytes : bytes + '\x12' + number(length, 4);
}

std::string BinaryPropertyListBuilder::references(const References& indices) {
  std::string bytes;
  for (const std::uint32_t index : indices)
    bytes += number(index, kReferenceSize);
  return bytes;
}

std::uint32_t BinaryPropertyListBuilder::real(double value) {
  return add('\x23' + number(std::bit_cast<std::uint64_t>(value), 8));
}

std::uint32_t BinaryPropertyListBuilder::utf16(std::u16string_view text) {
  std::string bytes = head(0x60, text.size());
  for (const char16_t unit : text)
    bytes += number(unit, 2);
  return add(bytes);
}

std::string BinaryPropertyListBuilder::finish(std::uint32_t root) const {
  std::string whole = bytes_;
  for (const std::size_t offset : offsets_)
    whole += number(offset, kOffsetSize);
  return whole + std::string(6, '\0') + number(kOffsetSize, 1) + number(kReferenceSize, 1) +
         number(offsets_.size(), 8) + number(root, 8) + number(bytes_.size(), 8);
}

}  // namespace test
