#pragma once

#include <string>
#include <vector>

#include "platform/security/bundle.hpp"
#include "platform/security/resource_seal.hpp"
#include "platform/security/security_error.hpp"
#include "platform/security/slice_verification.hpp"

namespace platform {

/// Code whose signature was checked: one version of a bundle, or a file.
struct CheckedCode {
  std::vector<CodeIdentity> identities;     ///< of every architecture, in the order of the file
  std::optional<PropertyList> information;  ///< Info.plist
};

/// One check of code with all that is nested in it.
class CodeCheck {
 public:
  explicit CodeCheck(const URL& anchorsDirectory) : anchors_(anchorsDirectory) {}

  /// Checks the item in the directory, a bundle or a file; the parts that take long go on until `finish`.
  /// Returns the code that it is: of a framework every version, the current one first. Throws
  /// `SecurityError`.
  std::vector<CheckedCode> check(const Directory& parent, const std::string& name) {
    return check(parent, name, 0);
  }

  /// Waits for the rest of the check. Throws `SecurityError`.
  void finish() { pool_.finish(); }

 private:
  std::vector<CheckedCode> check(const Directory& parent, const std::string& name, unsigned depth);
  CheckedCode checkBundle(const Bundle& bundle, unsigned depth);
  CheckedCode checkFile(CodeFile file);
  std::vector<CodeIdentity> checkSlices(const std::shared_ptr<const SignedCode>& code,
                                        const BoundFiles* files);
  void checkNested(const Directory& parent, const DirectoryEntry& entry, const SealedCode& sealed,
                   unsigned depth);

  AnchorSource anchors_;
  HashingPool pool_;
};

/// Throws `SecurityError` of the status for code that fails the requirement, naming the clause.
void requireSatisfied(const std::vector<CheckedCode>& checked, const Requirement& requirement,
                      OSStatus status);

}  // namespace platform
