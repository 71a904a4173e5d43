#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/foundation/error.hpp"

namespace fuzz {

/// The fuzzer's bytes as text.
inline std::string bytesOf(const std::uint8_t* data, std::size_t size) {
  return {data, data + size};
}

/// Reads something out of the input. That it is refused is fine; that it ends the program is not.
template <typename Read>
int run(Read&& read) {
  try {
    read();
  } catch (const platform::Error&) {
    // A refusal.
  }
  return 0;
}

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
