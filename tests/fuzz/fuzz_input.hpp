#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/files/data.hpp"
#include "platform/foundation/error.hpp"
#include "platform/foundation/text.hpp"

namespace fuzz {

/// The fuzzer's bytes as text.
inline std::string bytesOf(const std::uint8_t* data, std::size_t size) {
  return {data, data + size};
}

inline platform::Data dataOf(const std::uint8_t* data, std::size_t size) {
  return platform::Data(bytesOf(data, size));
}

/// A property that does not hold is a finding.
inline void require(bool holds) {
  if (!holds)
    __builtin_trap();
}

/// What goes into a sentence or a path is valid text.
inline void requireText(const std::string& text) {
  require(platform::stringFromUTF8(platform::Data(text)).has_value());
}

/// Reads something out of the input. That it is refused with a sentence is fine; that it ends the program is
/// not.
template <typename Read>
int run(Read&& read) {
  try {
    read();
  } catch (const platform::Error& error) {
    require(!error.localizedDescription().empty());
    requireText(error.localizedDescription());
  }
  return 0;
}

/// Something that may not be refused, because it was read before.
template <typename Read>
auto again(Read&& read) {
  try {
    return read();
  } catch (const platform::Error&) {
    __builtin_trap();
  }
}

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
