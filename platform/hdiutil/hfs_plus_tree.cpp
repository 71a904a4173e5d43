#include "platform/hdiutil/hfs_plus_tree.hpp"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "platform/hdiutil/compressed_file.hpp"
#include "platform/hdiutil/hfs_plus_attributes.hpp"
#include "platform/hdiutil/hfs_plus_catalog.hpp"
#include "platform/hdiutil/image_error.hpp"
#include "platform/hdiutil/staged_files.hpp"
#include "platform/hdiutil/tree_writer.hpp"

namespace platform::hdiutil {
namespace {

constexpr std::size_t kChunkSize = 1U << 18U;
constexpr std::uint64_t kLongestLink = 4095;
constexpr std::uint64_t kMostLinkBytes = 256U << 20U;
constexpr std::size_t kMostParts = 4'000'000;

/// Sizes that a volume only claims may have any sum; none is larger than the greatest number.
std::uint64_t sumOf(std::uint64_t one, std::uint64_t other) {
  return other > UINT64_MAX - one ? UINT64_MAX : one + other;
}

class TreeCopy {
 public:
  TreeCopy(HfsPlusVolume& volume, const Directory& tree, const Directory& work)
      : volume_(volume),
        catalog_(readHfsCatalog(volume)),
        writer_(tree),
        staged_(work),
        forks_(namelessFile(work.descriptor())),
        chunk_(kChunkSize) {}

  std::string run(const Directory& tree) {
    attributes_ = readCompressionAttributes(volume_, catalog_.entries);
    plan();
    requireSpace(tree.descriptor(), sumOf(unpackedSize(), forksSize_),
                 catalog_.entries.size() - hardLinks_.size());
    copyContent();
    unpackCompressed();
    placeEntries();
    finishMetadata();
    return catalog_.volumeName;
  }

 private:
  /// A piece of the volume and the entry whose content it is a part of.
  struct Part {
    HfsPiece piece;
    std::size_t entry;
    std::uint64_t fileOffset;
  };

  const CompressedFile* compressed(const HfsEntry& entry) const {
    const auto found = attributes_.find(entry.identifier);
    if (entry.kind != HfsEntry::Kind::file || !entry.isCompressed || found == attributes_.end())
      return nullptr;
    return &found->second;
  }

  std::uint64_t unpackedSize() const {
    std::uint64_t size = 0;
    std::unordered_set<std::uint32_t> linked;
    for (const HfsEntry& entry : catalog_.entries) {
      if (entry.linkTarget != 0 && !linked.insert(entry.linkTarget).second)
        continue;
      const CompressedFile* file = compressed(entry);
      size = sumOf(size, file == nullptr ? entry.data.size : file->size());
    }
    return size;
  }

  /// Of the hard links to a file, the first takes the content.
  void plan() {
    std::unordered_map<std::uint32_t, std::size_t> firstLinks;
    for (std::size_t index = 0; index < catalog_.entries.size(); ++index) {
      const HfsEntry& entry = catalog_.entries[index];
      if (entry.kind == HfsEntry::Kind::folder)
        continue;
      if (entry.linkTarget != 0) {
        const auto [first, isNew] = firstLinks.emplace(entry.linkTarget, index);
        if (!isNew) {
          hardLinks_.emplace(index, first->second);
          continue;
        }
      }
      if (entry.kind == HfsEntry::Kind::symbolicLink)
        planLink(index);
      else
        planFile(index);
    }
    std::sort(parts_.begin(), parts_.end(),
              [](const Part& one, const Part& other) { return one.piece.offset < other.piece.offset; });
  }

  void planLink(std::size_t index) {
    const HfsEntry& entry = catalog_.entries[index];
    if (entry.data.size == 0 || entry.data.size > kLongestLink)
      throw ImageError("a link in its volume is damaged");
    linkBytes_ += entry.data.size;
    if (linkBytes_ > kMostLinkBytes)
      throw ImageLimitError("the links in its volume together are longer than " +
                            std::to_string(kMostLinkBytes) + " bytes");
    linkTexts_.emplace(index, std::string(entry.data.size, '\0'));
    addParts(index, entry.data, HfsForkKind::data);
  }

  void planFile(std::size_t index) {
    const HfsEntry& entry = catalog_.entries[index];
    const CompressedFile* file = compressed(entry);
    if (entry.isCompressed && file == nullptr)
      throw ImageError("a compressed file in its volume is damaged: it has no content");
    if (file == nullptr) {
      addParts(index, entry.data, HfsForkKind::data);
    } else if (file->usesResourceFork()) {
      resourceForks_.emplace(index, forksSize_);
      forksSize_ = sumOf(forksSize_, entry.resource.size);
      addParts(index, entry.resource, HfsForkKind::resource);
    }
  }

  void addParts(std::size_t index, const HfsFork& fork, HfsForkKind kind) {
    std::uint64_t fileOffset = 0;
    for (const HfsPiece& piece : volume_.pieces(fork, catalog_.entries[index].identifier, kind)) {
      if (parts_.size() == kMostParts)
        throw ImageLimitError("the files in its volume are in more than " + std::to_string(kMostParts) +
                              " pieces");
      parts_.push_back({piece, index, fileOffset});
      fileOffset += piece.length;
    }
  }

  /// In the order of the disk, which is the order in which it is unpacked. Files of the same content may
  /// share a place; it is read once for all of them.
  void copyContent() {
    for (auto part = parts_.begin(); part != parts_.end();) {
      const auto isElsewhere = [&](const Part& other) {
        return other.piece.offset != part->piece.offset || other.piece.length != part->piece.length;
      };
      const auto end = std::find_if(part, parts_.end(), isElsewhere);
      copyPiece({part, end});
      part = end;
    }
  }

  void copyPiece(std::span<const Part> sharers) {
    const HfsPiece piece = sharers.front().piece;
    for (std::uint64_t done = 0; done < piece.length;) {
      const auto bytes = std::span(chunk_).first(std::min<std::uint64_t>(chunk_.size(), piece.length - done));
      volume_.disk().take(piece.offset + done, bytes);
      for (const Part& part : sharers)
        store(part, done, bytes);
      done += bytes.size();
    }
  }

  void store(const Part& part, std::uint64_t done, std::span<const char> bytes) {
    const std::uint64_t offset = part.fileOffset + done;
    if (const auto link = linkTexts_.find(part.entry); link != linkTexts_.end())
      std::copy(bytes.begin(), bytes.end(), link->second.begin() + static_cast<std::ptrdiff_t>(offset));
    else if (const auto fork = resourceForks_.find(part.entry); fork != resourceForks_.end())
      writeAt(forks_, fork->second + offset, bytes);
    else
      staged_.write(part.entry, offset, bytes);
  }

  void unpackCompressed() {
    for (std::size_t index = 0; index < catalog_.entries.size(); ++index) {
      const HfsEntry& entry = catalog_.entries[index];
      const CompressedFile* file = compressed(entry);
      const auto fork = resourceForks_.find(index);
      if (file == nullptr || hardLinks_.contains(index))
        continue;
      std::uint64_t offset = 0;
      file->unpack({forks_, fork == resourceForks_.end() ? 0 : fork->second, entry.resource.size},
                   [&](std::string_view bytes) {
                     staged_.write(index, offset, bytes);
                     offset += bytes.size();
                   });
    }
  }

  void placeEntries() {
    staged_.close();
    for (std::size_t index = 0; index < catalog_.entries.size(); ++index) {
      const std::string& path = catalog_.paths[index];
      const auto link = hardLinks_.find(index);
      const std::size_t source = link == hardLinks_.end() ? index : link->second;
      switch (catalog_.entries[index].kind) {
        case HfsEntry::Kind::folder:
          writer_.makeDirectory(path);
          break;
        case HfsEntry::Kind::symbolicLink:
          writer_.makeSymbolicLink(path, linkTexts_.at(source));
          break;
        case HfsEntry::Kind::file:
          placeFile(source, path);
          break;
      }
    }
  }

  void placeFile(std::size_t source, const std::string& path) {
    const HfsEntry& entry = catalog_.entries[source];
    const CompressedFile* file = compressed(entry);
    const bool isEmpty = (file == nullptr ? entry.data.size : file->size()) == 0;
    if (isEmpty && entry.linkTarget == 0) {
      writer_.makeEmptyFile(path);
      return;
    }
    if (isEmpty) {
      staged_.write(source, 0, {});
      staged_.close();
    }
    writer_.linkFile(staged_.file(source), path);
  }

  /// Folders last and the innermost first: their times change with what is made in them, and their
  /// permissions may forbid the rest.
  void finishMetadata() {
    for (std::size_t index = catalog_.entries.size(); index-- > 0;) {
      const HfsEntry& entry = catalog_.entries[index];
      writer_.setMetadata(catalog_.paths[index], {entry.kind == HfsEntry::Kind::symbolicLink,
                                                  entry.permissions,
                                                  {.seconds = entry.modified, .nanoseconds = 0}});
    }
    writer_.setMetadata(
        ".", {false, catalog_.root.permissions, {.seconds = catalog_.root.modified, .nanoseconds = 0}});
  }

  HfsPlusVolume& volume_;
  HfsCatalog catalog_;
  TreeWriter writer_;
  StagedFiles staged_;
  FileDescriptor forks_;  ///< the resource forks of compressed files, one behind the other
  std::uint64_t forksSize_ = 0;
  std::vector<char> chunk_;
  CompressionAttributes attributes_;
  std::vector<Part> parts_;
  std::uint64_t linkBytes_ = 0;
  std::unordered_map<std::size_t, std::size_t> hardLinks_;  ///< to the entry that is made as a file
  std::unordered_map<std::size_t, std::string> linkTexts_;
  std::unordered_map<std::size_t, std::uint64_t> resourceForks_;  ///< to their places in `forks_`
};

}  // namespace

std::string writeHfsPlusTree(HfsPlusVolume& volume, const Directory& tree, const Directory& work) {
  return TreeCopy(volume, tree, work).run(tree);
}

}  // namespace platform::hdiutil
