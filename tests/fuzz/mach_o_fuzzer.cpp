#include "platform/security/mach_o.hpp"
#include "platform/security/mach_o_linkage.hpp"
#include "tests/fuzz/fuzz_input.hpp"
#include "tests/platform/security/memory_source.hpp"

void fuzz::read(const std::string& bytes) {
  const test::MemorySource file(bytes);
  const auto slices = platform::readMachO(file);
  if (!slices)
    return;
  for (const platform::MachOSlice& slice : *slices) {
    platform::readMachOLinkage(file, slice.range);
    // Whatever is promised to lie in the file can be read from it.
    file.read(slice.range.offset, slice.range.length);
    if (slice.signature)
      file.read(slice.range.offset + slice.signature->offset, slice.signature->length);
    if (slice.informationSection)
      file.read(slice.range.offset + slice.informationSection->offset, slice.informationSection->length);
  }
}
