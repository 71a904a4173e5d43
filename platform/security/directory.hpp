#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/file_descriptor.hpp"
#include "platform/security/byte_source.hpp"

namespace platform {

enum class ItemKind { file, directory, link, special };

struct DirectoryEntry {
  std::string name;
  ItemKind kind;
};

/// A regular file that stays open. What is read is of that file, whatever happens to its name.
class CodeFile : public ByteSource {
 public:
  /// `path` names the file in failures, which are `SystemError`, as is a descriptor of anything but a regular
  /// file.
  CodeFile(FileDescriptor descriptor, std::string path);

  std::uint64_t size() const noexcept override { return size_; }
  void readAt(std::uint64_t offset, std::span<char> buffer) const override;

  const std::string& path() const noexcept { return path_; }
  const FileDescriptor& descriptor() const noexcept { return descriptor_; }

 private:
  FileDescriptor descriptor_;
  std::string path_;
  std::uint64_t size_ = 0;
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

  /// The directory knows this one as its parent.
  Directory subdirectory(const std::string& name) const;
  /// The one that this was reached from; null for one that was opened by its location.
  const Directory* parent() const noexcept { return parent_.get(); }
  /// The same directory without its parent.
  Directory asOutermost() const;
  CodeFile openFile(const std::string& name) const;
  /// The whole content of a file of at most `limit` bytes.
  std::string readFile(const std::string& name, std::uint64_t limit) const;

  /// The kind of an item; nothing when there is none of that name.
  std::optional<ItemKind> kindOf(const std::string& name) const;
  std::string linkTarget(const std::string& name) const;

  /// All items, sorted by name.
  std::vector<DirectoryEntry> entries() const;

  const std::string& path() const noexcept { return path_; }
  std::string pathOf(const std::string& name) const { return path_ + "/" + name; }
  const FileDescriptor& descriptor() const noexcept { return *descriptor_; }

 private:
  Directory(FileDescriptor descriptor, std::string path, std::shared_ptr<const Directory> parent)
      : descriptor_(std::make_shared<const FileDescriptor>(std::move(descriptor))),
        path_(std::move(path)),
        parent_(std::move(parent)) {}

  std::shared_ptr<const FileDescriptor> descriptor_;
  std::string path_;
  std::shared_ptr<const Directory> parent_;
};

}  // namespace platform
