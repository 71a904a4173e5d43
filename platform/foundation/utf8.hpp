#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace platform {

/// A Unicode scalar and the number of bytes that it takes in UTF-8.
struct EncodedScalar {
  char32_t scalar;
  std::size_t length;
};

/// The scalar at the beginning of `text`; nothing when there is no valid sequence (Unicode standard, section
/// 3.9).
std::optional<EncodedScalar> firstScalar(std::string_view text) noexcept;

}  // namespace platform
