#include <filesystem>
#include <string>

#include "tests/platform/tools/hdiutil/hfs_volume_builder.hpp"
#include "tests/platform/tools/hdiutil/image_builder.hpp"
#include "tests/support/files.hpp"
#include "tools/sign_bundle/make_mach_o.hpp"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kStartOfDisk = 2560;

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
  for (const auto& [name, architecture] : {std::pair{"thin64", sign_bundle::Architecture::arm64},
                                           {"thin32", sign_bundle::Architecture::i386},
                                           {"big", sign_bundle::Architecture::powerPc}}) {
    const std::string machO = sign_bundle::makeMachO({.architectures = {architecture}, .text = "text"});
    seed("mach_o", name, machO.substr(0, machO.find_last_not_of('\0') + 1));
  }
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
