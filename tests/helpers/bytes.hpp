#pragma once

#include <cstdint>
#include <string>

namespace test {

/// The lowest `size` bytes of a number, the least first.
inline std::string littleEndian(std::uint64_t value, unsigned size) {
  std::string bytes;
  for (unsigned place = 0; place < size; ++place)
    bytes += static_cast<char>(value >> (8 * place) & 0xFFU);
  return bytes;
}

/// The same with the greatest first.
inline std::string bigEndian(std::uint64_t value, unsigned size) {
  const std::string bytes = littleEndian(value, size);
  return {bytes.rbegin(), bytes.rend()};
}

}  // namespace test
