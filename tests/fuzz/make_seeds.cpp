#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/helpers/files.hpp"
#include "tests/platform/hdiutil/hfs_volume_builder.hpp"
#include "tests/platform/hdiutil/image_builder.hpp"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kStartOfDisk = 2560;

constexpr std::uint32_t kX86_64 = 0x01000007;
constexpr std::uint32_t kArm64 = 0x0100000C;

enum class Order { big, little };

std::string numbers(const std::vector<std::uint32_t>& values, Order order) {
  std::string bytes;
  for (const std::uint32_t value : values) {
    for (unsigned place = 0; place < 4; ++place)
      bytes += static_cast<char>(value >> 8U * (order == Order::big ? 3 - place : place) & 0xFFU);
  }
  return bytes;
}

std::string name16(std::string name) {
  name.resize(16, '\0');
  return name;
}

/// A header, a segment with the section of an Info.plist, and the place of a signature, which is 16 bytes.
std::string thinMachO(std::uint32_t processor) {
  const auto little = [](const std::vector<std::uint32_t>& values) { return numbers(values, Order::little); };
  return little({0xFEEDFACF, processor, processor == kX86_64 ? 3U : 0U, 2, 2, 168, 0, 0}) +
         little({0x19, 152}) + name16("__TEXT") + little({0, 0, 200, 0, 0, 0, 200, 0, 5, 5, 1, 0}) +
         name16("__info_plist") + name16("__TEXT") + little({0, 0, 8, 0, 100, 0, 0, 0, 0, 0, 0, 0}) +
         little({0x1D, 16, 200, 16}) + std::string(16, 's');
}

std::string compressedHeader(char kind, char size) {
  return std::string("fpmc") + kind + std::string(3, '\0') + size + std::string(7, '\0');
}

/// An uncompressed block, as the marker before it says, in a fork with its table.
std::string forkWith(const std::string& block) {
  const auto length = static_cast<char>(block.size());
  return std::string(4, '\0') + '\1' + std::string(3, '\0') + '\14' + std::string(3, '\0') + length +
         std::string(3, '\0') + block;
}

std::string hfsVolume() {
  test::HfsVolumeBuilder builder(u"Volume");
  const std::uint32_t folder = builder.addFolder(test::kRootFolder, u"Sample.app");
  builder.addFile(folder, u"fragmented", std::string(1500, 'f'), {.isFragmented = true});
  builder.addFile(folder, u"compressed", "", {.compression = compressedHeader(9, 4) + "\xCCtext"});
  builder.addLink(folder, u"link", "compressed");
  const std::uint32_t hard = builder.addFile(builder.addHardLinkFolder(), u"iNode17", "content");
  builder.addFile(folder, u"hard", "", {.hardLinkTarget = hard});
  return builder.build();
}

void writeSeeds(const fs::path& corpus) {
  const auto seed = [&](const char* fuzzer, const std::string& name, const std::string& bytes) {
    test::writeFile(corpus / fuzzer / name, bytes);
  };
  seed("mach_o", "thin", thinMachO(kArm64));
  seed("mach_o", "universal",
       numbers({0xCAFEBABE, 2, kX86_64, 3, 48, 216, 0, kArm64, 0, 264, 216, 0}, Order::big) +
           thinMachO(kX86_64) + thinMachO(kArm64));
  seed("hfs_plus", "volume", hfsVolume());
  const std::string volume(512, 'v');
  for (const auto& [name, disk] : {std::pair{"apple", test::appleDisk({volume, volume})},
                                   {"guid", test::guidDisk({volume, volume})},
                                   {"master_boot", test::masterBootDisk({volume})}})
    seed("partition_map", name, disk.substr(0, kStartOfDisk));
  fs::create_directories(corpus / "udif");
  test::writeUdif(corpus / "udif/image", {{"first", volume}, {"second", volume}});
  seed("compressed_file", "plain", compressedHeader(9, 4) + "\xCCtext");
  seed("compressed_file", "fork", compressedHeader(4, 4) + forkWith("\xCCtext"));
}

}  // namespace

// Writes the fuzzers' seeds that can be made here: make_seeds DIRECTORY
int main(int count, char** words) {
  if (count != 2)
    return 64;
  writeSeeds(words[1]);
  return 0;
}
