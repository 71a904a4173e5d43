#pragma once

#include "platform/files/directory.hpp"
#include "platform/files/url.hpp"

namespace platform {

/// An item held open, without access to its content, so that its identity is not reused and it is recognised
/// under any name.
class HeldItem {
 public:
  /// Holds nothing; a comparison with an existing item throws `SystemError`.
  HeldItem() noexcept = default;
  /// Holds the item at `url`; a link itself, not its target. Throws `SystemError`.
  explicit HeldItem(const URL& url);

  /// Whether this is the item at `url`. Throws `SystemError` if that cannot be determined.
  bool isAt(const URL& url) const;
  bool isAt(const Entry& entry) const;
  bool is(const FileIdentity& identity) const;

 private:
  FileDescriptor item_;
};

}  // namespace platform
