#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sign_bundle {

/// A Mach-O file with images for several architectures, or a single one.
struct UniversalFile {
  enum class Form { thin, fat, fat64 };
  struct Slice {
    std::uint32_t cpuType = 0;
    std::uint32_t cpuSubtype = 0;
    /// Binary logarithm of the alignment of the slice's offset.
    std::uint32_t alignment = 0;
    std::string bytes;
  };

  Form form = Form::thin;
  std::vector<Slice> slices;

  /// Throws `platform::Error` if a slice exceeds the file.
  static UniversalFile parse(std::string_view bytes);

  /// The file with its slices in order, each at the next aligned offset.
  std::string bytes() const;
};

}  // namespace sign_bundle
