#include "tests/platform/hdiutil/hfs_volume_builder.hpp"

#include "tests/helpers/bytes.hpp"

namespace test {
namespace {

constexpr std::size_t kBlock = 512;
constexpr std::size_t kDescriptor = 14;  ///< of a node
constexpr std::size_t kFirstDataBlock = 4;

std::string u16(std::uint64_t value) {
  return bigEndian(value, 2);
}
std::string u32(std::uint64_t value) {
  return bigEndian(value, 4);
}
std::string u64(std::uint64_t value) {
  return bigEndian(value, 8);
}

std::string text(const std::u16string& name) {
  std::string bytes = u16(name.size());
  for (const char16_t unit : name)
    bytes += u16(unit);
  return bytes;
}

template <typename Extents>
std::string eightExtents(const Extents& extents, std::size_t first) {
  std::string bytes;
  for (std::size_t index = first; index < first + 8; ++index)
    bytes += index < extents.size() ? u32(extents[index].first) + u32(extents[index].second) : u64(0);
  return bytes;
}

template <typename Fork>
std::string forkData(const Fork& fork) {
  return u64(fork.size) + u32(0) + u32(0) + eightExtents(fork.extents, 0);
}

std::string permissions(std::uint16_t mode, std::uint8_t flags, std::uint32_t special) {
  return u32(0) + u32(0) + bigEndian(0, 1) + bigEndian(flags, 1) + u16(mode) + u32(special);
}

std::string dates(std::uint32_t created = 0) {
  return u32(created) + u32(kHfsModified) + u32(0) + u32(0) + u32(0);
}

void pad(std::string& bytes, std::size_t multiple) {
  bytes.resize((bytes.size() + multiple - 1) / multiple * multiple, '\0');
}

}  // namespace

std::uint32_t HfsVolumeBuilder::addFolder(std::uint32_t parent, const std::u16string& name,
                                          std::uint16_t mode) {
  const std::uint32_t identifier = nextIdentifier_;
  nextIdentifier_ = identifier == kRootFolder ? 16 : identifier + 1;
  catalog_.emplace_back(u32(parent) + text(name), u16(1) + u16(0) + u32(0) + u32(identifier) + dates() +
                                                      permissions(mode, 0, 0) + std::string(40, '\0'));
  return identifier;
}

std::uint32_t HfsVolumeBuilder::addFile(std::uint32_t parent, const std::u16string& name,
                                        const std::string& content, const HfsFileOptions& options) {
  const std::uint32_t identifier = nextIdentifier_++;
  const Fork data = store(content, options.isFragmented);
  const bool isHardLink = options.hardLinkTarget != 0;
  catalog_.emplace_back(
      u32(parent) + text(name),
      u16(2) + u16(options.recordFlags) + u32(0) + u32(identifier) + dates(options.created) +
          permissions(options.mode, options.compression.empty() ? 0 : 0x20, options.hardLinkTarget) +
          (!options.type.empty() ? options.type
           : isHardLink          ? "hlnkhfs+"
                                 : std::string(8, '\0')) +
          std::string(32, '\0') + forkData(data) + forkData(store(options.resource, false)));
  for (std::size_t index = 8; index < data.extents.size(); index += 8)
    overflow_.emplace_back(u16(0) + u32(identifier) + u32(index), eightExtents(data.extents, index));
  if (!options.compression.empty())
    attributes_.emplace_back(u16(0) + u32(identifier) + u32(0) + text(u"com.apple.decmpfs"),
                             u32(0x10) + u64(0) + u32(options.compression.size()) + options.compression);
  return identifier;
}

std::uint32_t HfsVolumeBuilder::addLink(std::uint32_t parent, const std::u16string& name,
                                        const std::string& target) {
  return addFile(parent, name, target, {.mode = 0120755});
}

std::uint32_t HfsVolumeBuilder::addHardLinkFolder() {
  return addFolder(kRootFolder, std::u16string(u"\0\0\0\0HFS+ Private Data", 21), 040000);
}

HfsVolumeBuilder::Fork HfsVolumeBuilder::store(const std::string& content, bool isFragmented) {
  Fork fork{content.size(), {}};
  const std::size_t piece = isFragmented ? kBlock : content.size();
  for (std::size_t done = 0; done < content.size(); done += piece) {
    const std::string part = content.substr(done, piece);
    fork.extents.emplace_back(kFirstDataBlock + data_.size() / kBlock, (part.size() + kBlock - 1) / kBlock);
    data_ += part;
    pad(data_, kBlock);
    if (isFragmented)
      data_.append(kBlock, 'x');
  }
  return fork;
}

HfsVolumeBuilder::Fork HfsVolumeBuilder::storeTree(std::string& disk,
                                                   const std::vector<Record>& records) const {
  std::string body;
  std::string offsets = u16(kDescriptor);
  for (const auto& [key, data] : records) {
    body += u16(key.size()) + key + std::string(key.size() % 2, '\0') + data;
    pad(body, 2);
    offsets = u16(kDescriptor + body.size()) + offsets;
  }
  std::size_t node = 512;
  while (kDescriptor + body.size() + offsets.size() > node)
    node *= 2;
  // A header and one leaf.
  std::string tree = u64(0) + bigEndian(1, 1) + bigEndian(0, 1) + u16(3) + u16(0) + u16(1) + u32(1) +
                     u32(records.size()) + u32(1) + u32(1) + u16(node) + u16(516) + u32(2) + u32(0);
  pad(tree, node);
  tree += u64(0) + bigEndian(0xFF, 1) + bigEndian(1, 1) + u16(records.size()) + u16(0) + body;
  tree.resize(2 * node - offsets.size(), '\0');
  tree += offsets;
  Fork fork{tree.size(), {{disk.size() / kBlock, tree.size() / kBlock}}};
  disk += tree;
  return fork;
}

std::string HfsVolumeBuilder::build(std::uint32_t attributes) const {
  std::string disk(kFirstDataBlock * kBlock, '\0');
  disk += data_;
  const Fork overflow = overflow_.empty() ? Fork() : storeTree(disk, overflow_);
  const Fork catalog = storeTree(disk, catalog_);
  const Fork attributeTree = attributes_.empty() ? Fork() : storeTree(disk, attributes_);
  std::string header = "H+" + u16(4) + u32(attributes) + "10.0" + std::string(28, '\0') + u32(kBlock) +
                       u32(disk.size() / kBlock + 2);
  header.resize(112, '\0');
  header +=
      forkData(Fork()) + forkData(overflow) + forkData(catalog) + forkData(attributeTree) + forkData(Fork());
  disk.replace(1024, header.size(), header);
  return disk + std::string(2 * kBlock, '\0');
}

}  // namespace test
