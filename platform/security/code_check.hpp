#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/processes/worker_pool.hpp"
#include "platform/security/bundle.hpp"
#include "platform/security/check_work.hpp"
#include "platform/security/resource_seal.hpp"
#include "platform/security/security_error.hpp"
#include "platform/security/slice_verification.hpp"

namespace platform {

/// Code with a verified signature: one version of a bundle, or a single file.
struct CheckedCode {
  std::vector<CodeIdentity> identities;     ///< one for each architecture, in the file's order; not empty
  std::optional<PropertyList> information;  ///< Info.plist; nothing for a file without one
};

/// One check of one item, with all code nested in it: call `check` once and then `finish`, on one thread.
/// After a failure only `work` may be called. Files are hashed on threads that the object owns and its
/// destructor joins.
class CodeCheck {
 public:
  /// Decides on code by throwing `SecurityError` or returning. Runs on the thread that called `check`.
  using Acceptance = std::function<void(const CheckedCode&)>;

  /// The directory is not read before the first certificate must be judged.
  explicit CodeCheck(const URL& anchorsDirectory) : anchors_(anchorsDirectory) {}

  /// Verifies the bundle or file `name`. Hashing continues in the background until `finish` returns.
  ///
  /// Requires that nothing is written to the item until then. Ensures, when it returns, that every signature
  /// and seal is valid and that no item is missing or was added; contents are known to be intact after
  /// `finish`.
  ///
  /// `accept` is called for the item itself, not for nested code; for a framework once per version, the
  /// current one first. By then the signature and Info.plist are verified, and the sealed resources are not:
  /// code of another signer is rejected before any work that its seal demands. Throws `SecurityError`.
  void check(const Directory& parent, const std::string& name, const Acceptance& accept) {
    check(parent, name, accept, 0);
  }

  /// Waits for the hashing. Ensures, when it returns, that the item and all nested code are valid. Throws
  /// `SecurityError`.
  void finish() { pool_.finish(); }

  /// What the check has cost so far.
  const CheckWork& work() const noexcept { return work_; }

 private:
  void check(const Directory& parent, const std::string& name, const Acceptance& accept, unsigned depth);
  void checkBundle(Bundle bundle, const Acceptance& accept, unsigned depth);
  void checkFile(CodeFile file, const Acceptance& accept, unsigned depth);
  std::vector<CodeIdentity> verifySlices(const SignedCode& code, const BoundFiles* files);
  void submitPages(const std::shared_ptr<const SignedCode>& code);
  void checkNested(const Directory& parent, const ListedItem& entry, const SealedCode& sealed,
                   unsigned depth);

  AnchorSource anchors_;
  CheckWork work_;
  WorkerPool pool_;
};

/// Throws `SecurityError` with `status`, naming the clause, when an architecture fails the requirement.
void requireSatisfied(const CheckedCode& code, const Requirement& requirement, OSStatus status);

}  // namespace platform
