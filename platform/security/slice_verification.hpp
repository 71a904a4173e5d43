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

/// The files of a bundle whose digests are in its code directories.
struct BoundFiles {
  std::string information;  ///< content of Info.plist
  std::string resources;    ///< content of CodeResources
};

/// The anchors of a check, read when the first certificate must be judged. Not thread-safe.
class AnchorSource {
 public:
  explicit AnchorSource(URL directory) : directory_(std::move(directory)) {}

  /// Owned by this object. Throws `SecurityError`.
  const TrustAnchors& anchors();

 private:
  URL directory_;
  std::optional<TrustAnchors> anchors_;
};

/// Verifies the signature of one architecture and everything its code directory covers except the pages.
/// `files` is null for code that is a single file.
///
/// Returns what the signature says. Throws `SecurityError`.
CodeIdentity verifySlice(const SignedSlice& slice, const BoundFiles* files, AnchorSource& anchors);

/// Queues jobs that compare the pages of `slice`, which is one of `code`, with their digests, unless the same
/// comparison was queued before. The jobs share `code` and throw `SecurityError`.
void submitPageChecks(const std::shared_ptr<const SignedCode>& code, const SignedSlice& slice,
                      CheckWork& work, WorkerPool& pool);

/// The digest of a range, which must be inside the source. Reads in pieces; any thread may call it.
std::string digestOfRange(const ByteSource& source, const ByteRange& range, DigestAlgorithm algorithm);

}  // namespace platform
