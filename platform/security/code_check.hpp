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

/// Code whose signature was verified: one version of a bundle, or a file.
struct CheckedCode {
  std::vector<CodeIdentity> identities;     ///< of every architecture, in the order of the file
  std::optional<PropertyList> information;  ///< Info.plist
};

/// One check of code with all that is nested in it.
class CodeCheck {
 public:
  /// Throws `SecurityError` for code that is not the expected one.
  using Acceptance = std::function<void(const CheckedCode&)>;

  explicit CodeCheck(const URL& anchorsDirectory) : anchors_(anchorsDirectory) {}

  /// Checks the item in the directory, a bundle or a file; digests are compared in the background until
  /// `finish`.
  ///
  /// `accept` is called for the code that the item is, of a framework for every version, the current one
  /// first. The signature and Info.plist are verified by then, what a bundle's signature seals is not: code
  /// of another signer is refused before the work that its seal asks for. Throws `SecurityError`.
  void check(const Directory& parent, const std::string& name, const Acceptance& accept) {
    check(parent, name, accept, 0);
  }

  /// Waits for the rest of the check. Throws `SecurityError`.
  void finish() { pool_.finish(); }

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

/// Throws `SecurityError` of the status for code that fails the requirement, naming the clause.
void requireSatisfied(const CheckedCode& code, const Requirement& requirement, OSStatus status);

}  // namespace platform
