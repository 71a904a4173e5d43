#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/files/directory.hpp"

namespace platform::hdiutil {

/// Files on their way into a tree: they are written under numbers in a directory of their own, in any order,
/// and get their paths when they are complete. So no part of a file depends on how deep its path is, and no
/// content is written where the names are those of an image.
class StagedFiles {
 public:
  /// Makes the directory in `parent`, and removes it in the end.
  explicit StagedFiles(const Directory& parent);
  StagedFiles(const StagedFiles&) = delete;
  StagedFiles& operator=(const StagedFiles&) = delete;
  ~StagedFiles();

  /// Writes a part of a file, which is made where it is missing. The file written last stays open for the
  /// next part.
  void write(std::size_t number, std::uint64_t offset, std::span<const char> bytes);

  /// Closes the file that is open. Throws `SystemError` where the system reports that written data was lost.
  void close();

  Entry file(std::size_t number) const { return directory_.entry(std::to_string(number)); }

 private:
  Entry entry_;
  Directory directory_;
  FileDescriptor open_;
  std::size_t openNumber_ = 0;
};

}  // namespace platform::hdiutil
