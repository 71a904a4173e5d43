#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/formats/bytes.hpp"

namespace platform::hdiutil {

/// Reads numbers out of untrusted bytes. Whatever would lie outside of them is an `ImageError` that names the
/// item.
class ImageBytes {
 public:
  /// `bytes` and `item` outlive the reader. `item` stands at the start of a sentence.
  ImageBytes(std::string_view bytes, std::string_view item) noexcept : bytes_(bytes), item_(item) {}

  std::uint8_t u8(std::uint64_t offset) const {
    return static_cast<std::uint8_t>(bigEndian(span(offset, 1)));
  }
  std::uint16_t u16(std::uint64_t offset) const {
    return static_cast<std::uint16_t>(bigEndian(span(offset, 2)));
  }
  std::uint32_t u32(std::uint64_t offset) const {
    return static_cast<std::uint32_t>(bigEndian(span(offset, 4)));
  }
  std::uint64_t u64(std::uint64_t offset) const { return bigEndian(span(offset, 8)); }
  std::uint16_t littleU16(std::uint64_t offset) const {
    return static_cast<std::uint16_t>(littleEndian(span(offset, 2)));
  }
  std::uint32_t littleU32(std::uint64_t offset) const {
    return static_cast<std::uint32_t>(littleEndian(span(offset, 4)));
  }
  std::uint64_t littleU64(std::uint64_t offset) const { return littleEndian(span(offset, 8)); }

  std::string_view span(std::uint64_t offset, std::uint64_t length) const;
  /// The same bytes as a reader of their own.
  ImageBytes part(std::uint64_t offset, std::uint64_t length) const { return {span(offset, length), item_}; }
  bool startsWith(std::uint64_t offset, std::string_view text) const;
  std::uint64_t size() const noexcept { return bytes_.size(); }

  /// Throws the `ImageError` of an item that contradicts itself.
  [[noreturn]] void damaged() const;

 private:
  std::string_view bytes_;
  std::string_view item_;
};

}  // namespace platform::hdiutil
