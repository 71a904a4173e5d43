#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/formats/byte_source.hpp"

namespace platform {

/// A system that code was built for, and the least version that it declares to need.
struct MachOTarget {
  std::uint32_t platform = 0;  ///< a number of `mach_o::build_platform`
  std::uint32_t major = 0;
  std::uint32_t minor = 0;
  std::uint32_t patch = 0;
};

/// A library that the loader finds before the code runs.
struct MachOLibrary {
  std::string name;     ///< a path, which may begin with "@rpath/" and the like
  bool isWeak = false;  ///< may be missing
};

/// What the dynamic loader reads of the code for one architecture.
struct MachOLinkage {
  std::uint32_t fileType = 0;
  std::vector<MachOTarget> targets;  ///< several for a library that is for two systems; none in old code
  std::vector<MachOLibrary> libraries;
  std::vector<std::string> runPaths;       ///< places for names that begin with "@rpath/", in order
  std::optional<std::string> installName;  ///< a library's own name
};

/// Reads the load commands of the code in a range of the file, as `MachOSlice` gives it. Throws `FormatError`
/// for malformed commands, and what reading the file throws.
MachOLinkage readMachOLinkage(const ByteSource& file, const ByteRange& code);

}  // namespace platform
