#pragma once

#include <dirent.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/ditto/item.hpp"

namespace platform::ditto {

/// Reads the names in a directory in portions of bounded size, each in the order in which the files lie on
/// the disk as far as their numbers tell.
class DirectoryReader {
 public:
  /// Throws `SystemError`.
  explicit DirectoryReader(const Item& directory);

  /// Some more names, without "." and ".."; none at the end. Throws `SystemError`.
  std::vector<std::string> nextNames();

 private:
  struct Close {
    void operator()(DIR* stream) const noexcept { ::closedir(stream); }
  };
  std::string path_;
  std::unique_ptr<DIR, Close> stream_;
};

}  // namespace platform::ditto
