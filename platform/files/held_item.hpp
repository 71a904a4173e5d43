#pragma once

#include <string>

#include "platform/files/file_descriptor.hpp"
#include "platform/files/url.hpp"

struct stat;

namespace platform {

/// An item that is held open, without a right to its content, so that it can be told from any other whatever
/// names it is given: its device and inode number are not used anew while it is held.
class HeldItem {
 public:
  /// Holds nothing; every comparison fails.
  HeldItem() noexcept = default;
  /// Holds the item itself, also where it is a link. Throws `SystemError`.
  explicit HeldItem(const URL& url);

  /// Whether this is the item at `url`. Throws `SystemError` where the system does not tell.
  bool isAt(const URL& url) const;
  /// The same for a name in an open directory.
  bool isAt(const FileDescriptor& directory, const std::string& name) const;
  /// The same for an item of which the system has told this.
  bool is(const struct stat& status) const;

 private:
  FileDescriptor item_;
};

}  // namespace platform
