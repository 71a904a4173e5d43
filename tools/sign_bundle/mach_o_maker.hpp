#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sign_bundle {

enum class Architecture { x86_64, arm64, i386, powerPc };
enum class MachOKind { executable, dynamicLibrary, loadableBundle, objectFile };

struct MachOOptions {
  /// One for a thin file, several for a universal one.
  std::vector<Architecture> architectures = {Architecture::x86_64};
  MachOKind kind = MachOKind::executable;
  /// A constant in the text segment; files with different texts differ.
  std::string text = "sample";
  /// Minimum size of the text segment.
  std::size_t leastTextSize = 0;
  /// Use 64-bit offsets in a universal file.
  bool wideUniversal = false;
  /// What the loader reads: names of libraries that are needed beside the system's, the same of those that
  /// may be missing, run paths, the name of a library, which by default is made of `text`, and the target.
  std::vector<std::string> libraries = {};
  std::vector<std::string> weakLibraries = {};
  std::vector<std::string> runPaths = {};
  std::string installName = {};
  std::uint32_t platform = 1;
  std::uint32_t leastSystem = 0x000B0000;
};

/// A small unsigned Mach-O file for tests, whose program exits at once. The same options give the same bytes.
std::string makeMachO(const MachOOptions& options);

}  // namespace sign_bundle
