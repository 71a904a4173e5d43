#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/formats/property_list.hpp"
#include "platform/security/certificate.hpp"

namespace platform {

/// A condition on code, as a syntax tree.
struct RequirementNode {
  enum class Kind {
    always,
    never,
    all,                 ///< every one of `operands`
    any,                 ///< at least one of `operands`
    negation,            ///< not the one operand
    anchorGeneric,       ///< the chain ends in a trusted root
    anchorOwn,           ///< the code is the platform maker's own
    identifier,          ///< the code has the identifier `value`
    codeDirectoryHash,   ///< the code directory's hash is the 20 bytes `value`
    certificateField,    ///< the certificate has the extension `key`
    certificateSubject,  ///< the field `key` of the certificate's subject is `value`, or exists
    certificateHash,     ///< the certificate's SHA-1 digest is `value`
    information,         ///< the string under `key` in Info.plist is `value`, or the key exists
  };

  Kind kind = Kind::never;
  std::vector<RequirementNode> operands = {};
  int certificate = 0;  ///< index from the leaf; a negative one counts back from the end, -1 is the anchor
  std::string key = {};
  std::optional<std::string> value = {};
  std::string text = {};  ///< the source text of this node, for messages
};

/// Parses the text of one requirement as a whole. The depth of nesting is limited. Throws
/// `FormatError`.
RequirementNode parseRequirement(std::string_view text);

/// Reads a requirement in the compiled form of a signature, a blob with its header. The texts of its nodes
/// are written anew. Throws `FormatError`, also for conditions that the text form cannot have here.
RequirementNode readCompiledRequirement(std::string_view blob);

/// What a valid signature says about the code of one architecture.
struct CodeIdentity {
  std::string place;  ///< path and architecture, as a sentence begins with them
  std::string identifier;
  std::optional<std::string> teamIdentifier;
  std::string codeDirectoryHash;
  std::vector<Certificate> chain;  ///< leaf first, anchor last; empty for code signed ad hoc
};

/// A compiled code requirement: conditions on identifier, certificates, code directory and Info.plist, joined
/// by `and`, `or`, `!` and parentheses. Immutable.
class Requirement {
 public:
  /// Throws `SecurityError` with the status `errSecCSReqInvalid` unless the whole text is a requirement.
  static Requirement parse(std::string_view text);
  /// From the compiled form, as `readCompiledRequirement`. Throws `FormatError`.
  static Requirement fromCompiled(std::string_view blob);

  /// Nothing when the code satisfies the requirement, otherwise the source text of the clause that it fails.
  /// `information` is the code's Info.plist, or null.
  std::optional<std::string> failingClause(const CodeIdentity& code, const PropertyList* information) const;

 private:
  explicit Requirement(RequirementNode root) : root_(std::move(root)) {}

  RequirementNode root_;
};

}  // namespace platform
