#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/processes/worker_pool.hpp"
#include "platform/security/check_work.hpp"
#include "platform/security/requirement.hpp"
#include "platform/security/signed_code.hpp"
#include "platform/security/trust_anchors.hpp"

namespace platform {

/// The files of a bundle that its signature binds by their digests.
struct BoundFiles {
  std::string information;  ///< the whole of Info.plist
  std::string resources;    ///< the whole of CodeResources
};

/// The anchors of a check. They are read when the first certificate has to be judged, and then kept.
class AnchorSource {
 public:
  explicit AnchorSource(URL directory) : directory_(std::move(directory)) {}

  /// Throws `SecurityError`.
  const TrustAnchors& anchors();

 private:
  URL directory_;
  std::optional<TrustAnchors> anchors_;
};

/// Verifies the signature of one architecture and the components that its code directory covers, but not the
/// pages. `files` are those of the bundle, or null for code that is a file by itself.
///
/// Returns what the signature says. Throws `SecurityError`.
CodeIdentity verifySlice(const SignedSlice& slice, const BoundFiles* files, AnchorSource& anchors);

/// Has the pool compare all pages of the slice, one of `code`, with their digests, unless that was done for
/// the same file before. A step throws `SecurityError`.
void submitPageChecks(const std::shared_ptr<const SignedCode>& code, const SignedSlice& slice,
                      CheckWork& work, WorkerPool& pool);

/// The digest of a range of bytes, read in pieces.
std::string digestOfRange(const ByteSource& source, const ByteRange& range, DigestAlgorithm algorithm);

}  // namespace platform
