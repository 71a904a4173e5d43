#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace test {

inline constexpr std::uint32_t kRootFolder = 2;
inline constexpr std::uint32_t kHfsModified = 3700000000;  ///< of every entry, in seconds since 1904

struct HfsFileOptions {
  std::uint16_t mode = 0100644;
  std::string resource = {};
  std::string compression = {};  ///< the attribute "com.apple.decmpfs"
  std::uint32_t hardLinkTarget = 0;
  std::uint16_t recordFlags = 0;
  std::string type = {};      ///< and creator, eight characters
  std::uint32_t created = 0;  ///< that of the root folder is 0
  bool isFragmented = false;  ///< no two blocks of the content are adjacent
};

/// Builds small HFS Plus volumes with entries that make_disk_image does not write.
class HfsVolumeBuilder {
 public:
  explicit HfsVolumeBuilder(const std::u16string& name) { addFolder(1, name); }

  /// Returns the identifier of the new entry.
  std::uint32_t addFolder(std::uint32_t parent, const std::u16string& name, std::uint16_t mode = 040755);
  std::uint32_t addFile(std::uint32_t parent, const std::u16string& name, const std::string& content,
                        const HfsFileOptions& options = {});
  std::uint32_t addLink(std::uint32_t parent, const std::u16string& name, const std::string& text);

  /// The folder that contains the content of hard links.
  std::uint32_t addHardLinkFolder();

  std::string build(std::uint32_t attributes = 0x100) const;

 private:
  struct Fork {
    std::uint64_t size = 0;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> extents;
  };
  using Record = std::pair<std::string, std::string>;

  Fork store(const std::string& content, bool isFragmented);
  Fork storeTree(std::string& disk, const std::vector<Record>& records) const;

  std::vector<Record> catalog_;
  std::vector<Record> attributes_;
  std::vector<Record> overflow_;
  std::string data_;
  std::uint32_t nextIdentifier_ = kRootFolder;
};

}  // namespace test
