#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/files/data.hpp"
#include "platform/foundation/error.hpp"
#include "platform/foundation/text.hpp"

namespace fuzz {

/// Each fuzzer's own: reads the input. That it is refused with a sentence is fine; that the program ends is
/// not.
void read(const std::string& bytes);

/// A property that does not hold is a finding.
inline void require(bool holds) {
  if (!holds)
    __builtin_trap();
}

/// What goes into a sentence or a path is valid text.
inline void requireText(const std::string& text) {
  require(platform::stringFromUTF8(text).has_value());
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

// Each fuzzer is one source, which is why this may be here.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    fuzz::read({data, data + size});
  } catch (const platform::Error& error) {
    fuzz::require(!error.localizedDescription().empty());
    fuzz::requireText(error.localizedDescription());
  }
  return 0;
}
