#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/formats/byte_source.hpp"

namespace platform {

/// The code for one architecture in a Mach-O file.
struct MachOSlice {
  std::string architecture;            ///< the usual name, such as "arm64"
  bool isLoaded = false;               ///< the system loads it: an executable, library, kernel extension, …
  ByteRange range;                     ///< in the file
  std::optional<ByteRange> signature;  ///< relative to `range`, at its end; nothing for unsigned code
  std::optional<ByteRange> informationSection;  ///< relative to `range`: the embedded Info.plist
};

/// The slices of a Mach-O file, thin or universal. Nothing for a file in another format, and for one that the
/// system does not load, such as an object file, whose signature is not embedded.
///
/// Throws `FormatError` unless the headers are valid, slices are inside the file and do not overlap, each has
/// another architecture, only zero bytes are between them, and the file ends with the last. Also throws what
/// reading the file throws.
std::optional<std::vector<MachOSlice>> readMachO(const ByteSource& file);

/// True for a file with the magic number of a Mach-O file, well-formed or not. Reads at most eight bytes.
bool beginsLikeMachO(const ByteSource& file);

}  // namespace platform
