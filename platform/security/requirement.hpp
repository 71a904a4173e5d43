#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/formats/property_list.hpp"
#include "platform/security/certificate.hpp"

namespace platform {

/// A condition on code, as a tree. Each node stands for the text that it was read from.
struct RequirementNode {
  enum class Kind {
    always,
    never,
    all,                 ///< every one of `operands`
    any,                 ///< at least one of `operands`
    negation,            ///< not the one operand
    anchorGeneric,       ///< the chain ends in one of the platform's roots
    anchorOwn,           ///< the code is the platform maker's own
    identifier,          ///< the code has the identifier `value`
    codeDirectoryHash,   ///< the code is known by the 20 bytes `value`
    certificateField,    ///< the certificate has the extension `key`
    certificateSubject,  ///< the field `key` of the certificate's subject is `value`, or exists
    certificateHash,     ///< the certificate's SHA-1 digest is `value`
    information,         ///< the text under `key` in Info.plist is `value`, or exists
  };

  Kind kind = Kind::never;
  std::vector<RequirementNode> operands = {};
  int certificate = 0;  ///< counted from the leaf, or for a negative number from behind the anchor
  std::string key = {};
  std::optional<std::string> value = {};
  std::string text = {};
};

/// Parses the text of one requirement, to its end. Throws `FormatError`.
RequirementNode parseRequirement(std::string_view text);

/// What is known of code whose signature is valid.
struct CodeIdentity {
  std::string place;  ///< the code's path and architecture, as they begin a sentence
  std::string identifier;
  std::optional<std::string> teamIdentifier;
  std::string codeDirectoryHash;
  std::vector<Certificate>
      chain;  ///< leaf first, ending in an anchor; empty for code that no certificate vouches for
};

/// A requirement in the platform's language: conditions on identifier, certificates, code directory and
/// Info.plist, joined by `and`, `or`, `!` and parentheses.
class Requirement {
 public:
  /// Throws `SecurityError` of the status `errSecCSReqInvalid` for a text that is no requirement as a whole.
  static Requirement parse(std::string_view text);

  /// Nothing when the code satisfies the requirement; else the text of the clause that it fails.
  /// `information` is the code's Info.plist, or null.
  std::optional<std::string> failingClause(const CodeIdentity& code, const PropertyList* information) const;

 private:
  explicit Requirement(RequirementNode root) : root_(std::move(root)) {}

  RequirementNode root_;
};

}  // namespace platform
