#pragma once

#include "platform/files/directory.hpp"
#include "platform/files/url.hpp"

namespace platform {

/// An item that is held open, without access to its content, so that its identity is not reused: it can be
/// told from any other under whatever name.
class HeldItem {
 public:
  /// Holds nothing; every comparison fails.
  HeldItem() noexcept = default;
  /// Holds the item itself, also where it is a link. Throws `SystemError`.
  explicit HeldItem(const URL& url);

  /// Whether this is the item at `url`. Throws `SystemError` where the system does not tell.
  bool isAt(const URL& url) const;
  bool isAt(const Entry& entry) const;
  bool is(const FileIdentity& identity) const;

 private:
  FileDescriptor item_;
};

}  // namespace platform
