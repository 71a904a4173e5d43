#pragma once

#include <vector>

#include "platform/files/url.hpp"
#include "platform/security/certificate.hpp"

namespace platform {

/// The roots in which a chain of certificates has to end.
class TrustAnchors {
 public:
  explicit TrustAnchors(std::vector<Certificate> roots) : roots_(std::move(roots)) {}

  /// The roots in the files `*.pem` of a directory. Throws `SecurityError` when the directory or a file of
  /// that name could have been changed by someone else than the superuser and the caller, is a link, or holds
  /// anything but self-signed roots. A directory that is missing or empty trusts nothing.
  static TrustAnchors inDirectory(const URL& url);

  const std::vector<Certificate>& roots() const noexcept { return roots_; }

 private:
  std::vector<Certificate> roots_;
};

}  // namespace platform
