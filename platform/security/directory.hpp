#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/files/file_descriptor.hpp"
#include "platform/formats/byte_source.hpp"

namespace platform {

enum class ItemKind { file, directory, link, special };

/// The same for all hard links to a file, and for nothing else on the machine.
struct FileIdentity {
  std::uint64_t device;
  std::uint64_t inode;

  bool operator<(const FileIdentity& other) const noexcept {
    return device != other.device ? device < other.device : inode < other.inode;
  }
};

struct ItemStatus {
  ItemKind kind;
  FileIdentity identity;
  std::uint64_t size;
  bool isExecutable;  ///< by anybody
  bool hasHardLinks;  ///< a file that has other names
};

struct DirectoryEntry : ItemStatus {
  std::string name;
};

/// A regular file that stays open. What is read is of that file, whatever happens to its name.
class CodeFile : public ByteSource {
 public:
  /// `path` names the file in failures, which are `SystemError`, as is a descriptor of anything but a regular
  /// file.
  CodeFile(FileDescriptor descriptor, std::string path);

  std::uint64_t size() const noexcept override { return status_.size; }
  void readAt(std::uint64_t offset, std::span<char> buffer) const override;

  const std::string& path() const noexcept { return path_; }
  const ItemStatus& status() const noexcept { return status_; }
  const FileDescriptor& descriptor() const noexcept { return descriptor_; }

 private:
  FileDescriptor descriptor_;
  std::string path_;
  ItemStatus status_;
};

/// An open directory, from which its items are reached without following links and without waiting for
/// anything that is no file. Copies share it. Failures are `SystemError`.
class Directory {
 public:
  enum class Links { followed, refused };

  /// `links` is about the last component alone.
  static Directory open(const URL& url, Links links);
  /// False when nothing is at the location.
  static bool isThere(const URL& url);

  Directory subdirectory(const std::string& name) const;
  CodeFile openFile(const std::string& name) const;
  /// The whole content of a file of at most `limit` bytes.
  std::string readFile(const std::string& name, std::uint64_t limit) const;

  /// Of the item itself, also where it is a link; nothing when there is none of that name.
  std::optional<ItemStatus> statusOf(const std::string& name) const;
  /// The kind of an item; nothing when there is none of that name.
  std::optional<ItemKind> kindOf(const std::string& name) const;
  std::string linkTarget(const std::string& name) const;

  /// All items, sorted by name.
  std::vector<DirectoryEntry> entries() const;

  const std::string& path() const noexcept { return path_; }
  std::string pathOf(const std::string& name) const { return path_ + "/" + name; }
  const FileDescriptor& descriptor() const noexcept { return *descriptor_; }

 private:
  Directory(FileDescriptor descriptor, std::string path)
      : descriptor_(std::make_shared<const FileDescriptor>(std::move(descriptor))), path_(std::move(path)) {}

  std::shared_ptr<const FileDescriptor> descriptor_;
  std::string path_;
};

}  // namespace platform
