#include "tests/platform/tools/hdiutil/fat_volume_builder.hpp"

#include "tests/support/bytes.hpp"

namespace test {
namespace {

constexpr std::size_t kSector = 512;
constexpr std::size_t kSectorCount = 2880;
constexpr std::size_t kTableSectors = 9;
constexpr std::size_t kRootSize = 224 * 32;
constexpr std::size_t kUnitsInSlot = 13;

class FatBuilder {
 public:
  std::string build(const std::vector<FatEntry>& entries) {
    std::string root = directory(entries);
    root.resize(kRootSize, '\0');
    std::string disk = bootSector() + table() + table() + root + data_;
    disk.resize(kSector * kSectorCount, '\0');
    return disk;
  }

 private:
  static std::string bootSector() {
    std::string sector =
        "\xEB\x3C\x90MSDOS5.0" + littleEndian(kSector, 2) + littleEndian(1, 1) + littleEndian(1, 2) +
        littleEndian(2, 1) + littleEndian(224, 2) + littleEndian(kSectorCount, 2) + littleEndian(0xF0, 1) +
        littleEndian(kTableSectors, 2) + littleEndian(18, 2) + littleEndian(2, 2) + littleEndian(0, 8) +
        littleEndian(0x290000, 3) + littleEndian(0, 4) + "FAT VOLUME FAT12   ";
    sector.resize(kSector - 2, '\0');
    return sector + "\x55\xAA";
  }

  /// Twelve bits for each cluster.
  std::string table() const {
    std::string bytes;
    for (std::size_t index = 0; index < clusters_.size(); index += 2)
      bytes += littleEndian(
          clusters_[index] | (index + 1 < clusters_.size() ? clusters_[index + 1] << 12U : 0), 3);
    bytes.resize(kTableSectors * kSector, '\0');
    return bytes;
  }

  std::size_t store(std::string content) {
    const std::size_t first = clusters_.size();
    for (std::size_t done = 0; done < content.size(); done += kSector)
      clusters_.push_back(done + kSector < content.size() ? clusters_.size() + 1 : 0xFFF);
    content.resize((clusters_.size() - first) * kSector, '\0');
    data_ += content;
    return content.empty() ? 0 : first;
  }

  static std::string record(const std::string& shortName, unsigned attributes, std::size_t cluster,
                            std::size_t size) {
    return shortName + littleEndian(attributes, 1) + std::string(10, '\0') + littleEndian(0x54216000, 4) +
           littleEndian(cluster, 2) + littleEndian(size, 4);
  }

  /// The slots of a long name, the last part first.
  static std::string longName(const std::string& name, const std::string& shortName) {
    std::uint8_t checksum = 0;
    for (const char byte : shortName)
      checksum =
          static_cast<std::uint8_t>((checksum >> 1U | checksum << 7U) + static_cast<unsigned char>(byte));
    std::string units;
    for (const char character : name)
      units += {character, '\0'};
    if (name.size() % kUnitsInSlot != 0)
      units += std::string(2, '\0');
    const std::size_t count = (units.size() / 2 + kUnitsInSlot - 1) / kUnitsInSlot;
    units.resize(count * kUnitsInSlot * 2, '\xFF');
    std::string slots;
    for (std::size_t slot = count; slot > 0; --slot) {
      const std::string part = units.substr((slot - 1) * kUnitsInSlot * 2, kUnitsInSlot * 2);
      slots += littleEndian(slot | (slot == count ? 0x40U : 0U), 1) + part.substr(0, 10) +
               littleEndian(0x0F, 2) + littleEndian(checksum, 1) + part.substr(10, 12) + littleEndian(0, 2) +
               part.substr(22);
    }
    return slots;
  }

  std::string directory(const std::vector<FatEntry>& entries) {
    std::string records;
    for (const FatEntry& entry : entries) {
      std::string shortName = "F" + std::to_string(++shortNames_);
      shortName.resize(11, ' ');
      std::string content = entry.content;
      if (entry.isFolder)
        content = record(".          ", 0x10, 0, 0) + record("..         ", 0x10, 0, 0) +
                  directory(entry.entries) + std::string(32, '\0');
      records +=
          longName(entry.name, shortName) + record(shortName, entry.isFolder ? 0x10 : 0x20, store(content),
                                                   entry.isFolder ? 0 : content.size());
    }
    return records;
  }

  std::vector<std::size_t> clusters_{0xFF0, 0xFFF};
  std::string data_;
  int shortNames_ = 0;
};

}  // namespace

std::string fatVolume(const std::vector<FatEntry>& entries) {
  return FatBuilder().build(entries);
}

}  // namespace test
