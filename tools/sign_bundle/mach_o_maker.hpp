#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace sign_bundle {

enum class Architecture { x86_64, arm64, i386, powerPc };
enum class MachOKind { executable, dynamicLibrary, loadableBundle, objectFile };

struct MachOOptions {
  /// One architecture makes a thin file, several make a universal one.
  std::vector<Architecture> architectures = {Architecture::x86_64};
  MachOKind kind = MachOKind::executable;
  /// Stands in the text segment as a constant; files with different texts differ.
  std::string text = "sample";
  /// The text segment is at least this long.
  std::size_t leastTextSize = 0;
  /// Universal files have 64-bit offsets.
  bool wideUniversal = false;
};

/// A small well-formed unsigned Mach-O file whose program ends at once. It is input for tests; the same
/// options make the same bytes.
std::string makeMachO(const MachOOptions& options);

}  // namespace sign_bundle
