#pragma once

#include <vector>

#include "platform/files/url.hpp"
#include "platform/security/certificate.hpp"

namespace platform {

/// The root certificates in which a chain must end. Immutable after construction.
class TrustAnchors {
 public:
  explicit TrustAnchors(std::vector<Certificate> roots) : roots_(std::move(roots)) {}

  /// Reads the roots from the files `*.pem` in a directory. Throws `SecurityError` when the directory or one
  /// of these files is a symbolic link, belongs to anyone but the superuser and the caller, or is writable by
  /// group or others, and when a file contains anything but self-signed roots. Without the directory, and
  /// with an empty one, no root is trusted.
  static TrustAnchors inDirectory(const URL& url);

  const std::vector<Certificate>& roots() const noexcept { return roots_; }

 private:
  std::vector<Certificate> roots_;
};

}  // namespace platform
