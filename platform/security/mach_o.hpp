#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/formats/byte_source.hpp"

namespace platform {

/// The code for one architecture in a Mach-O file.
struct MachOSlice {
  std::string architecture;                     ///< as a person knows it, such as "arm64"
  bool isLoaded = false;                        ///< an executable, a library, a kernel extension or the like
  ByteRange range;                              ///< in the file
  std::optional<ByteRange> signature;           ///< in the slice, at its end; nothing for unsigned code
  std::optional<ByteRange> informationSection;  ///< in the slice: an Info.plist that the code itself carries
};

/// The slices of a Mach-O file, thin or universal; nothing for a file of another format, and for one that the
/// system does not load, such as an object file: its signature is not embedded.
///
/// Slices neither overlap nor leave the file, there is one for an architecture, and between and behind them
/// lie only zero bytes. A file that breaks these rules, or those of its headers, is a `FormatError`.
std::optional<std::vector<MachOSlice>> readMachO(const ByteSource& file);

/// True for a file with the magic number of a Mach-O file, well-formed or not. Reads nothing else.
bool beginsLikeMachO(const ByteSource& file);

}  // namespace platform
