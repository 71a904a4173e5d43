#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/hdiutil/image_registry.hpp"
#include "tests/helpers/files.hpp"
#include "tools/make_disk_image/udif_writer.hpp"

namespace test {

/// Ways in which a block can be stored, by their names in the field.
std::vector<std::pair<std::string, make_disk_image::BlockEncoding>> blockEncodings();

/// A part of a disk: its name in a block table and its content.
struct DiskPart {
  std::string name;
  std::string content;
};

/// Writes a disk image with one block table for each part, one after the other.
void writeUdif(const std::filesystem::path& image, const std::vector<DiskPart>& parts,
               const make_disk_image::BlockEncoding& encoding = make_disk_image::zlibEncoding());

/// The HFS Plus volume that make_disk_image creates from a folder.
std::string hfsVolumeOf(const std::filesystem::path& folder);

/// A FAT volume of the size of a floppy disk with the entries of the folder. In its long names, which names
/// with letters of both cases get, the first string of the pair is replaced by the second of the same length:
/// names that no tool would write.
std::string fatVolumeOf(const std::filesystem::path& folder,
                        const std::pair<std::string, std::string>& renamed = {});

/// Disks with an Apple partition map, a GUID partition table or a master boot record, which contain the
/// volumes in order.
std::string appleDisk(const std::vector<std::string>& volumes);
std::string guidDisk(const std::vector<std::string>& volumes);
std::string masterBootDisk(const std::vector<std::string>& volumes);

/// A private registry of a test, with the results of attaching images.
class Images {
 public:
  struct Attached {
    std::filesystem::path mountPoint;        ///< the last one; empty after a failure
    std::vector<std::string> entities = {};  ///< device, hint and the mount point's last component of each
    std::string device;
    std::string failure;
  };

  Attached attach(const std::filesystem::path& image) const;
  /// Detaches an image and returns the message of a failure, or nothing.
  std::string detach(const std::string& deviceOrMountPoint) const;
  /// The names in the registry: empty when no image is attached and nothing was left behind.
  std::vector<std::string> leftovers() const;

  std::filesystem::path location() const { return directory_ / "images"; }

 private:
  TemporaryDirectory directory_;
};

}  // namespace test
