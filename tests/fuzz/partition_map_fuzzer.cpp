#include "platform/hdiutil/partition_map.hpp"
#include "tests/fuzz/fuzz_input.hpp"
#include "tests/fuzz/memory_disk.hpp"

constexpr std::uint64_t kDiskSize = 1U << 20U;

// The input is the start of the disk. Every partition lies on the disk.
void fuzz::read(const std::string& bytes) {
  fuzz::MemoryDisk disk(bytes, kDiskSize);
  for (const auto& partition : platform::hdiutil::readPartitionMap(disk))
    fuzz::require(partition.offset <= kDiskSize && partition.length <= kDiskSize - partition.offset);
}
