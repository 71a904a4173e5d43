#include "platform/hdiutil/hfs_plus_catalog.hpp"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "platform/hdiutil/image_error.hpp"
#include "platform/hdiutil/tree_writer.hpp"

namespace platform::hdiutil {
namespace {

constexpr std::uint32_t kRootParent = 1;
constexpr std::uint32_t kRoot = 2;
constexpr std::size_t kLongestPath = 4095;
constexpr std::size_t kMostEntries = 1'000'000;
constexpr std::int64_t kSecondsFrom1904To1970 = 2082844800;
constexpr std::uint64_t kForkSize = 80;
constexpr std::uint8_t kCompressedFlag = 0x20;
constexpr std::uint16_t kHasLinkChain = 0x20;
constexpr std::size_t kMostPathBytes = 256U << 20U;
constexpr std::string_view kFileLinksName("\0\0\0\0HFS+ Private Data", 21);
constexpr std::string_view kFolderLinksName = ".HFS+ Private Directory Data\r";

/// True for entries of the root folder that the file system reserves for itself.
bool isHousekeeping(std::string_view nameInRoot) {
  constexpr std::array<std::string_view, 5> kNames{kFileLinksName, kFolderLinksName, ".journal",
                                                   ".journal_info_block", ".hotfiles.btree"};
  const auto holds = [&](const auto& names) {
    return std::find(names.begin(), names.end(), nameInRoot) != names.end();
  };
  return holds(kNames) || holds(kHousekeepingNames);
}

enum RecordType : std::uint16_t { kFolderRecord = 1, kFileRecord = 2 };
enum ModeType : std::uint16_t {
  kModeType = 0170000,
  kModeFolder = 0040000,
  kModeFile = 0100000,
  kModeLink = 0120000,
};

void appendUtf8(std::string& text, std::uint32_t character) {
  const auto put = [&](std::uint32_t byte) { text += static_cast<char>(byte); };
  if (character < 0x80) {
    put(character);
  } else if (character < 0x800) {
    put(0xC0U | character >> 6U);
    put(0x80U | (character & 0x3FU));
  } else if (character < 0x10000) {
    put(0xE0U | character >> 12U);
    put(0x80U | (character >> 6U & 0x3FU));
    put(0x80U | (character & 0x3FU));
  } else {
    put(0xF0U | character >> 18U);
    put(0x80U | (character >> 12U & 0x3FU));
    put(0x80U | (character >> 6U & 0x3FU));
    put(0x80U | (character & 0x3FU));
  }
}

/// The name at `offset`: the number of UTF-16 code units, and these.
std::string readName(const ImageBytes& key, std::uint64_t offset) {
  const std::uint16_t length = key.u16(offset);
  std::string name;
  for (std::uint64_t index = 0; index < length; ++index) {
    const auto unit = [&](std::uint64_t place) { return std::uint32_t{key.u16(offset + 2 + 2 * place)}; };
    std::uint32_t character = unit(index);
    if (character >= 0xD800 && character < 0xDC00 && index + 1 < length && unit(index + 1) >= 0xDC00 &&
        unit(index + 1) < 0xE000)
      character = 0x10000 + ((character - 0xD800) << 10U) + (unit(++index) - 0xDC00);
    else if (character >= 0xD800 && character < 0xE000)
      throw ImageError("the name of a file in its volume is not valid text");
    appendUtf8(name, character == '/' ? ':' : character);
  }
  return name;
}

HfsEntry readEntry(const ImageBytes& record, bool isFolder) {
  HfsEntry entry{};
  entry.identifier = record.u32(8);
  entry.created = record.u32(12);
  entry.modified = std::int64_t{record.u32(16)} - kSecondsFrom1904To1970;
  const std::uint16_t mode = record.u16(42);
  entry.permissions = static_cast<std::uint16_t>(mode & 07777U);
  const std::uint16_t type = mode & kModeType;
  entry.kind = isFolder ? HfsEntry::Kind::folder : HfsEntry::Kind::file;
  if (type == 0)
    entry.permissions = isFolder ? 0755 : 0644;  // written by a system without permissions
  else if (!isFolder && type == kModeLink)
    entry.kind = HfsEntry::Kind::symbolicLink;
  else if (type != (isFolder ? kModeFolder : kModeFile))
    throw UnsupportedImageError("an entry in its volume that is neither a file nor a folder nor a link");
  if (isFolder)
    return entry;
  entry.isCompressed = (record.u8(41) & kCompressedFlag) != 0;
  if (record.startsWith(48, "hlnkhfs+"))
    entry.linkTarget = record.u32(44);
  // An alias of the Finder to a folder has the same type and creator.
  entry.isFolderLink = (record.u16(2) & kHasLinkChain) != 0 && record.startsWith(48, "fdrpMACS");
  entry.data = readHfsFork(record.part(88, kForkSize));
  entry.resource = readHfsFork(record.part(168, kForkSize));
  return entry;
}

class CatalogReader {
 public:
  void addRecord(const ImageBytes& key, const ImageBytes& data) {
    const std::uint16_t type = data.u16(0);
    if (type != kFolderRecord && type != kFileRecord)
      return;
    if (entries_.size() == kMostEntries)
      throw ImageLimitError("its volume has more than " + std::to_string(kMostEntries) + " entries");
    HfsEntry entry = readEntry(data, type == kFolderRecord);
    entry.parent = key.u32(0);
    entry.name = readName(key, 4);
    entries_.push_back(std::move(entry));
  }

  HfsCatalog arrange() {
    indexFolders();
    const auto root = std::find_if(entries_.begin(), entries_.end(),
                                   [](const HfsEntry& entry) { return entry.parent == kRootParent; });
    if (root == entries_.end() || root->identifier != kRoot || root->kind != HfsEntry::Kind::folder)
      throw ImageError("its volume is damaged: it has no root folder");
    HfsCatalog catalog{root->name, *root, {}, {}};
    linkDates_.insert(root->created);
    readHardLinks();
    std::vector<std::pair<std::uint32_t, std::string>> folders{{kRoot, ""}};
    std::size_t reached = 1;
    std::size_t pathBytes = 0;
    while (!folders.empty()) {
      const auto [identifier, path] = std::move(folders.back());
      folders.pop_back();
      for (const std::size_t index : children(identifier)) {
        HfsEntry& entry = entries_[index];
        ++reached;
        if (identifier == kRoot && isHousekeeping(entry.name)) {
          skipped_.push_back(entry.identifier);
          continue;
        }
        if (!isEntryName(entry.name))
          throw ImageError("the name of a file in its volume is not valid in a path");
        resolve(entry);
        std::string place = path.empty() ? entry.name : path + "/" + entry.name;
        pathBytes += place.size();
        requireUsualPaths(place.size(), pathBytes);
        if (entry.kind == HfsEntry::Kind::folder)
          folders.emplace_back(entry.identifier, place);
        catalog.entries.push_back(std::move(entry));
        catalog.paths.push_back(std::move(place));
      }
    }
    for (std::size_t next = 0; next < skipped_.size(); ++next) {
      for (const std::size_t index : children(skipped_[next])) {
        ++reached;
        if (entries_[index].kind == HfsEntry::Kind::folder)
          skipped_.push_back(entries_[index].identifier);
      }
    }
    // An entry that is not below the root would be missing from the tree.
    if (reached != entries_.size())
      throw ImageError("its volume's catalog is damaged");
    return catalog;
  }

 private:
  /// Without these limits, nested folders would take memory proportional to the square of their number.
  static void requireUsualPaths(std::size_t length, std::size_t sum) {
    if (length > kLongestPath)
      throw ImageLimitError("a path in its volume is longer than " + std::to_string(kLongestPath) + " bytes");
    if (sum > kMostPathBytes)
      throw ImageLimitError("the paths in its volume together are longer than " +
                            std::to_string(kMostPathBytes) + " bytes");
  }

  void indexFolders() {
    for (std::size_t index = 0; index < entries_.size(); ++index) {
      const HfsEntry& entry = entries_[index];
      if (entry.kind == HfsEntry::Kind::folder && !folders_.insert(entry.identifier).second)
        throw ImageError("its volume's catalog is damaged");
      children_[entry.parent].push_back(index);
    }
  }

  /// Removes and returns the children of a folder, so that a cycle of folders ends.
  std::vector<std::size_t> children(std::uint32_t identifier) {
    const auto found = children_.find(identifier);
    return found == children_.end() ? std::vector<std::size_t>() : std::exchange(found->second, {});
  }

  void readHardLinks() {
    for (const HfsEntry& folder : entries_) {
      if (folder.parent != kRoot || folder.kind != HfsEntry::Kind::folder ||
          (folder.name != kFileLinksName && folder.name != kFolderLinksName))
        continue;
      linkDates_.insert(folder.created);
      if (folder.name == kFolderLinksName)
        continue;
      const auto inside = children_.find(folder.identifier);
      if (inside == children_.end())
        continue;
      for (const std::size_t index : inside->second)
        linkTargets_.emplace(entries_[index].name, entries_[index]);
    }
  }

  /// Gives a hard link everything but its name and parent from the file that contains the content.
  void resolve(HfsEntry& entry) const {
    // With another date it is an ordinary file, such as a copy of a hard link.
    if (!linkDates_.contains(entry.created))
      entry.linkTarget = 0;
    else if (entry.isFolderLink)
      throw UnsupportedImageError("a hard link to a folder in its volume");
    if (entry.linkTarget == 0)
      return;
    const auto target = linkTargets_.find("iNode" + std::to_string(entry.linkTarget));
    if (target == linkTargets_.end() || target->second.linkTarget != 0 ||
        target->second.kind == HfsEntry::Kind::folder)
      throw ImageError("its volume is damaged: a hard link has no target");
    HfsEntry resolved = target->second;
    resolved.name = entry.name;
    resolved.parent = entry.parent;
    resolved.linkTarget = entry.linkTarget;
    entry = std::move(resolved);
  }

  std::vector<HfsEntry> entries_;
  std::unordered_set<std::uint32_t> folders_;
  std::unordered_map<std::uint32_t, std::vector<std::size_t>> children_;
  std::map<std::string, HfsEntry> linkTargets_;
  std::set<std::uint32_t> linkDates_;  ///< every hard link has one of them as its date of creation
  std::vector<std::uint32_t> skipped_;
};

}  // namespace

HfsCatalog readHfsCatalog(HfsPlusVolume& volume) {
  CatalogReader reader;
  volume.readCatalog([&](const ImageBytes& key, const ImageBytes& data) { reader.addRecord(key, data); });
  return reader.arrange();
}

}  // namespace platform::hdiutil
