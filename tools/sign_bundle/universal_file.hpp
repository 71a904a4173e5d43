#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sign_bundle {

/// A file with images for several architectures, or one image alone.
struct UniversalFile {
  enum class Form { thin, fat, fat64 };
  struct Slice {
    std::uint32_t cpuType = 0;
    std::uint32_t cpuSubtype = 0;
    /// The power of two that the slice's offset is a multiple of.
    std::uint32_t alignment = 0;
    std::string bytes;
  };

  Form form = Form::thin;
  std::vector<Slice> slices;

  /// Throws `platform::Error` where a slice does not lie within the file.
  static UniversalFile parse(std::string_view bytes);

  /// The file with its slices in their order, each at the next aligned place.
  std::string bytes() const;
};

}  // namespace sign_bundle
