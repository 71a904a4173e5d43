#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/files/directory.hpp"

namespace platform::hdiutil {

/// Files that are written under numbers in a separate directory, in any order, and are linked into a tree
/// when they are complete. So the cost of a write is independent of the depth of the file's path, and content
/// is never written under a name from an image.
class StagedFiles {
 public:
  /// Creates the directory in `parent`; the destructor removes it with all files. Throws `SystemError`.
  explicit StagedFiles(const Directory& parent);
  StagedFiles(const StagedFiles&) = delete;
  StagedFiles& operator=(const StagedFiles&) = delete;
  ~StagedFiles();

  /// Writes a part of a file, which is created if it is missing. The file remains open until another one is
  /// written. Throws `SystemError`.
  void write(std::size_t number, std::uint64_t offset, std::span<const char> bytes);

  /// Closes the open file. Throws `SystemError` when the system reports that written data was lost.
  void close();

  Entry file(std::size_t number) const { return directory_.entry(std::to_string(number)); }

 private:
  Entry entry_;
  Directory directory_;
  FileDescriptor open_;
  std::size_t openNumber_ = 0;
};

}  // namespace platform::hdiutil
