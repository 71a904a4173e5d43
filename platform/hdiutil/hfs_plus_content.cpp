#include "platform/hdiutil/hfs_plus_content.hpp"

#include <algorithm>
#include <unordered_set>

#include "platform/hdiutil/disk.hpp"
#include "platform/hdiutil/image_error.hpp"

namespace platform::hdiutil {
namespace {

constexpr std::uint64_t kLongestLink = 4095;
constexpr std::uint64_t kMostLinkBytes = 256U << 20U;
constexpr std::size_t kMostParts = 4'000'000;

class ContentLocator {
 public:
  ContentLocator(HfsPlusVolume& volume, const HfsCatalog& catalog)
      : volume_(volume), entries_(catalog.entries) {
    content_.compressedFiles = readCompressedFiles(volume, entries_);
  }

  HfsContent run() {
    std::unordered_map<std::uint32_t, std::size_t> firstLinks;
    for (std::size_t index = 0; index < entries_.size(); ++index) {
      const HfsEntry& entry = entries_[index];
      if (entry.kind == HfsEntry::Kind::folder)
        continue;
      if (entry.linkTarget != 0) {
        const auto [first, isNew] = firstLinks.emplace(entry.linkTarget, index);
        if (!isNew) {
          content_.hardLinks.emplace(index, first->second);
          continue;
        }
      }
      if (entry.kind == HfsEntry::Kind::symbolicLink)
        addLink(index);
      else
        addFile(index);
    }
    std::sort(content_.parts.begin(), content_.parts.end(),
              [](const auto& one, const auto& other) { return one.piece.offset < other.piece.offset; });
    return std::move(content_);
  }

 private:
  void addLink(std::size_t index) {
    const HfsFork& text = entries_[index].data;
    if (text.size == 0 || text.size > kLongestLink)
      throw ImageError("a link in its volume is damaged");
    linkBytes_ += text.size;
    if (linkBytes_ > kMostLinkBytes)
      throw ImageLimitError("the links in its volume together are longer than " +
                            std::to_string(kMostLinkBytes) + " bytes");
    content_.unpackedSize = saturatingSum(content_.unpackedSize, text.size);
    addParts(index, text, HfsForkKind::data);
  }

  void addFile(std::size_t index) {
    const HfsEntry& entry = entries_[index];
    const CompressedFile* file = content_.compressedFile(entry);
    if (entry.isCompressed && file == nullptr)
      throw ImageError("a compressed file in its volume is damaged: it has no content");
    content_.unpackedSize =
        saturatingSum(content_.unpackedSize, file == nullptr ? entry.data.size : file->size());
    if (file == nullptr) {
      addParts(index, entry.data, HfsForkKind::data);
    } else if (file->usesResourceFork()) {
      content_.resourceForks.emplace(index, content_.resourceForksSize);
      content_.resourceForksSize = saturatingSum(content_.resourceForksSize, entry.resource.size);
      addParts(index, entry.resource, HfsForkKind::resource);
    }
  }

  void addParts(std::size_t index, const HfsFork& fork, HfsForkKind kind) {
    std::uint64_t fileOffset = 0;
    for (const HfsPiece& piece : volume_.pieces(fork, entries_[index].identifier, kind)) {
      if (content_.parts.size() == kMostParts)
        throw ImageLimitError("the files in its volume are in more than " + std::to_string(kMostParts) +
                              " pieces");
      content_.parts.push_back({piece, index, fileOffset});
      fileOffset += piece.length;
    }
  }

  HfsPlusVolume& volume_;
  const std::vector<HfsEntry>& entries_;
  HfsContent content_;
  std::uint64_t linkBytes_ = 0;
};

}  // namespace

std::size_t HfsContent::source(std::size_t index) const {
  const auto link = hardLinks.find(index);
  return link == hardLinks.end() ? index : link->second;
}

const CompressedFile* HfsContent::compressedFile(const HfsEntry& entry) const {
  const auto found = compressedFiles.find(entry.identifier);
  if (entry.kind != HfsEntry::Kind::file || !entry.isCompressed || found == compressedFiles.end())
    return nullptr;
  return &found->second;
}

HfsContent locateContent(HfsPlusVolume& volume, const HfsCatalog& catalog) {
  return ContentLocator(volume, catalog).run();
}

}  // namespace platform::hdiutil
