#include "tests/platform/hdiutil/image_builder.hpp"

#include <fcntl.h>

#include <stdexcept>

#include "platform/foundation/error.hpp"
#include "platform/hdiutil/attach.hpp"
#include "tests/helpers/bytes.hpp"
#include "tests/helpers/program.hpp"
#include "tools/make_disk_image/hfs_plus_maker.hpp"

namespace fs = std::filesystem;
using platform::FileDescriptor;
using platform::URL;
using platform::hdiutil::ImageRegistry;

namespace test {
namespace {

constexpr std::size_t kSector = 512;

/// A disk of parts, each at its own sector, behind `head` sectors.
std::string layOut(std::size_t head, const std::vector<std::string>& volumes,
                   std::vector<std::size_t>& firstSectors) {
  std::string disk(head * kSector, '\0');
  for (const std::string& volume : volumes) {
    firstSectors.push_back(disk.size() / kSector);
    disk += volume;
    disk.resize((disk.size() + kSector - 1) / kSector * kSector, '\0');
  }
  return disk + std::string(34 * kSector, '\0');
}

std::string padded(std::string text, std::size_t size) {
  text.resize(size, '\0');
  return text;
}

}  // namespace

std::vector<std::pair<std::string, make_disk_image::BlockEncoding>> blockEncodings() {
  return {{"zlib", make_disk_image::zlibEncoding()},
          {"none", {1, [](auto block) { return std::string(block.begin(), block.end()); }}}};
}

void writeUdif(const fs::path& image, const std::vector<DiskPart>& parts,
               const make_disk_image::BlockEncoding& encoding) {
  const TemporaryDirectory directory;
  fs::remove(image);
  const FileDescriptor output =
      FileDescriptor::open(URL::fileURLWithPath(image.native()), O_WRONLY | O_CREAT, 0644);
  make_disk_image::UdifWriter writer(output);
  std::uint64_t sector = 0;
  for (const DiskPart& part : parts) {
    writeFile(directory / "part", part.content);
    platform::hdiutil::RawDisk disk(
        FileDescriptor::open(URL::fileURLWithPath((directory / "part").native()), O_RDONLY));
    writer.addTable({part.name, disk, 0, part.content.size(), sector}, encoding);
    sector += part.content.size() / kSector;
  }
  writer.finish();
}

std::string hfsVolumeOf(const fs::path& folder) {
  const TemporaryDirectory directory;
  const auto volume = make_disk_image::makeHfsPlusVolume(
      URL::fileURLWithPath(folder.native()), "Volume",
      FileDescriptor::open(URL::fileURLWithPath(directory.path().native()), O_RDONLY | O_DIRECTORY));
  return volume.disk->read(volume.partition.offset, volume.partition.length);
}

std::string fatVolumeOf(const fs::path& folder, const std::pair<std::string, std::string>& renamed) {
  const TemporaryDirectory directory;
  const std::string volume = (directory / "volume").native();
  runProgram("/usr/bin/mformat", {"-C", "-i", volume, "-f", "1440", "::"});
  std::vector<std::string> copy{"-s", "-Q", "-i", volume};
  for (const auto& entry : fs::directory_iterator(folder))
    copy.push_back(entry.path().native());
  copy.emplace_back("::/");
  if (const Outcome copied = runProgram("/usr/bin/mcopy", copy); copied.exitStatus != 0)
    throw std::runtime_error("mcopy: " + copied.error);
  std::string bytes = readFile(volume);
  const auto wide = [](const std::string& name) {
    std::string units;
    for (const char character : name)
      units += {character, '\0'};
    return units;
  };
  const std::string usual = wide(renamed.first);
  for (std::size_t place = 0; !usual.empty() && (place = bytes.find(usual, place)) != std::string::npos;)
    bytes.replace(place, usual.size(), wide(renamed.second));
  return bytes;
}

std::string appleDisk(const std::vector<std::string>& volumes) {
  std::vector<std::size_t> first;
  std::string disk = layOut(64, volumes, first);
  disk.replace(0, 4, std::string("ER") + bigEndian(kSector, 2));
  const auto entry = [&](std::size_t index, std::size_t start, std::size_t count, const std::string& type) {
    const std::string bytes = std::string("PM") + bigEndian(0, 2) + bigEndian(volumes.size() + 1, 4) +
                              bigEndian(start, 4) + bigEndian(count, 4) + padded("name", 32) +
                              padded(type, 32);
    disk.replace(index * kSector, bytes.size(), bytes);
  };
  entry(1, 1, 63, "Apple_partition_map");
  for (std::size_t index = 0; index < volumes.size(); ++index)
    entry(index + 2, first[index], volumes[index].size() / kSector, "Apple_HFS");
  return disk;
}

std::string guidDisk(const std::vector<std::string>& volumes) {
  std::vector<std::size_t> first;
  std::string disk = layOut(34, volumes, first);
  const std::string header =
      "EFI PART" + std::string(64, '\0') + littleEndian(2, 8) + littleEndian(128, 4) + littleEndian(128, 4);
  disk.replace(kSector, header.size(), header);
  for (std::size_t index = 0; index < volumes.size(); ++index) {
    const std::string bytes = std::string(16, 'H') + std::string(16, 'U') + littleEndian(first[index], 8) +
                              littleEndian(first[index] + volumes[index].size() / kSector - 1, 8);
    disk.replace(2 * kSector + 128 * index, bytes.size(), bytes);
  }
  return disk;
}

std::string masterBootDisk(const std::vector<std::string>& volumes) {
  std::vector<std::size_t> first;
  std::string disk = layOut(64, volumes, first);
  disk.replace(510, 2, "\x55\xAA");
  for (std::size_t index = 0; index < volumes.size(); ++index) {
    const std::string bytes = std::string(4, '\0') + "\xAF" + std::string(3, '\0') +
                              littleEndian(first[index], 4) +
                              littleEndian(volumes[index].size() / kSector, 4);
    disk.replace(446 + 16 * index, bytes.size(), bytes);
  }
  return disk;
}

Images::Attached Images::attach(const fs::path& image) const {
  try {
    ImageRegistry registry(URL::fileURLWithPath(location().native()));
    platform::PropertyList list("");
    platform::hdiutil::attach(URL::fileURLWithPath(image.native()), registry,
                              [&](const platform::PropertyList& announced) { list = announced; });
    Attached attached;
    for (const auto& entity : *list.valueForKey("system-entities")->array()) {
      std::string line = fs::path(*entity.valueForKey("dev-entry")->string()).filename();
      if (const auto* hint = entity.valueForKey("content-hint"))
        line += ' ' + *hint->string();
      if (const auto* mountPoint = entity.valueForKey("mount-point"))
        line += " -> " + fs::path(*mountPoint->string()).filename().native();
      attached.entities.push_back(line);
      if (entity.valueForKey("mount-point") == nullptr)
        continue;
      attached.mountPoint = *entity.valueForKey("mount-point")->string();
      attached.device = *entity.valueForKey("dev-entry")->string();
    }
    return attached;
  } catch (const platform::Error& error) {
    return {{}, {}, {}, error.localizedDescription()};
  }
}

std::string Images::detach(const std::string& deviceOrMountPoint) const {
  try {
    ImageRegistry(URL::fileURLWithPath(location().native())).detach(deviceOrMountPoint);
    return {};
  } catch (const platform::Error& error) {
    return error.localizedDescription();
  }
}

std::vector<std::string> Images::leftovers() const {
  std::vector<std::string> names;
  if (fs::exists(location())) {
    for (const auto& entry : fs::directory_iterator(location()))
      names.push_back(entry.path().filename().native());
  }
  return names;
}

}  // namespace test
