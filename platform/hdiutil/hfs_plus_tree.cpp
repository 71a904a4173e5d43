#include "platform/hdiutil/hfs_plus_tree.hpp"

#include <algorithm>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/hdiutil/hfs_plus_catalog.hpp"
#include "platform/hdiutil/hfs_plus_content.hpp"
#include "platform/hdiutil/staged_files.hpp"
#include "platform/hdiutil/tree_writer.hpp"

namespace platform::hdiutil {
namespace {

constexpr std::size_t kChunkSize = 1U << 18U;

/// Reads the volume once, in the order of the disk, into files outside of the tree; then creates the entries.
class VolumeUnpacker {
 public:
  VolumeUnpacker(HfsPlusVolume& volume, const Directory& tree, const Directory& work)
      : volume_(volume),
        catalog_(readHfsCatalog(volume)),
        content_(locateContent(volume, catalog_)),
        writer_(tree),
        staged_(work),
        resourceForks_(namelessFile(work.descriptor())),
        chunk_(kChunkSize) {}

  std::string run(const Directory& tree) {
    requireSpace(tree.descriptor(), saturatingSum(content_.unpackedSize, content_.resourceForksSize),
                 catalog_.entries.size() - content_.hardLinks.size());
    copyContent();
    unpackCompressed();
    placeEntries();
    finishMetadata();
    return catalog_.volumeName;
  }

 private:
  using Part = HfsContent::Part;

  /// Files with the same content may share a piece, which can be read only once.
  void copyContent() {
    for (auto part = content_.parts.begin(); part != content_.parts.end();) {
      const auto isElsewhere = [&](const Part& other) {
        return other.piece.offset != part->piece.offset || other.piece.length != part->piece.length;
      };
      const auto end = std::find_if(part, content_.parts.end(), isElsewhere);
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
    const HfsEntry& entry = catalog_.entries[part.entry];
    if (entry.kind == HfsEntry::Kind::symbolicLink) {
      std::string& text = linkTexts_[part.entry];
      text.resize(entry.data.size);
      std::copy(bytes.begin(), bytes.end(), text.begin() + static_cast<std::ptrdiff_t>(offset));
      return;
    }
    const auto fork = content_.resourceForks.find(part.entry);
    if (fork != content_.resourceForks.end())
      writeAt(resourceForks_, fork->second + offset, bytes);
    else
      staged_.write(part.entry, offset, bytes);
  }

  void unpackCompressed() {
    for (std::size_t index = 0; index < catalog_.entries.size(); ++index) {
      const HfsEntry& entry = catalog_.entries[index];
      const CompressedFile* file = content_.compressedFile(entry);
      const auto fork = content_.resourceForks.find(index);
      if (file == nullptr || content_.hardLinks.contains(index))
        continue;
      const std::uint64_t forkOffset = fork == content_.resourceForks.end() ? 0 : fork->second;
      std::uint64_t offset = 0;
      file->unpack({resourceForks_, forkOffset, entry.resource.size}, [&](std::string_view bytes) {
        staged_.write(index, offset, bytes);
        offset += bytes.size();
      });
    }
  }

  void placeEntries() {
    staged_.close();
    for (std::size_t index = 0; index < catalog_.entries.size(); ++index) {
      const std::string& path = catalog_.paths[index];
      const std::size_t source = content_.source(index);
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
    const CompressedFile* file = content_.compressedFile(entry);
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

  /// After everything else, the innermost folders first: creating an entry changes the time of its folder,
  /// and the permissions of a folder may forbid it.
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
  HfsContent content_;
  TreeWriter writer_;
  StagedFiles staged_;
  FileDescriptor resourceForks_;  ///< of compressed files, one after the other
  std::vector<char> chunk_;
  std::unordered_map<std::size_t, std::string> linkTexts_;
};

}  // namespace

std::string writeHfsPlusTree(HfsPlusVolume& volume, const Directory& tree, const Directory& work) {
  return VolumeUnpacker(volume, tree, work).run(tree);
}

}  // namespace platform::hdiutil
