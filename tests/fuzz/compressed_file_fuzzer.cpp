#include "platform/hdiutil/compressed_file.hpp"
#include "tests/fuzz/fuzz_input.hpp"
#include "tests/fuzz/memory_disk.hpp"

// The input is the attribute's header and the resource fork, or the whole attribute. What is unpacked is as
// long as the header says.
void fuzz::read(const std::string& bytes) {
  const std::string fork = bytes.substr(std::min<std::size_t>(bytes.size(), 16));
  const platform::hdiutil::CompressedFile file(bytes);
  std::uint64_t length = 0;
  const platform::FileDescriptor none;
  const bool isFork = file.usesResourceFork();
  file.unpack({isFork ? fuzz::memoryFile(fork) : none, 0, fork.size()},
              [&](std::string_view part) { length += part.size(); });
  fuzz::require(length == file.size());
}
