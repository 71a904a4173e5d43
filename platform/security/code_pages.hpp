#pragma once

#include <memory>

#include "platform/processes/worker_pool.hpp"
#include "platform/security/check_work.hpp"
#include "platform/security/signed_code.hpp"

namespace platform {

/// Has the pool compare all pages of the slice, one of `code`, with their digests, unless that was done for
/// the same file before. A step throws `SecurityError`.
void submitPageChecks(const std::shared_ptr<const SignedCode>& code, const SignedSlice& slice,
                      CheckWork& work, WorkerPool& pool);

/// The digest of a range of bytes, read in pieces.
std::string digestOfRange(const ByteSource& source, const ByteRange& range, DigestAlgorithm algorithm);

}  // namespace platform
