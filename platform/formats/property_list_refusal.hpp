#pragma once

#include <cstddef>
#include <string_view>

namespace platform {

/// Deeper than any list that a person or a tool would write.
inline constexpr std::size_t kDeepestPropertyList = 512;

/// Throws the `PropertyListError` for data that is no valid property list; `reason` completes the sentence.
[[noreturn]] void refusePropertyList(std::string_view reason);

[[noreturn]] void refuseDeepPropertyList();

}  // namespace platform
