#include "platform/security/requirement.hpp"

#include <algorithm>

#include "platform/security/security_error.hpp"

namespace platform {
namespace {

using Kind = RequirementNode::Kind;

class Evaluation {
 public:
  Evaluation(const CodeIdentity& code, const PropertyList* information)
      : code_(code), information_(information) {}

  bool holds(const RequirementNode& node) const {
    const auto operandHolds = [this](const RequirementNode& operand) { return holds(operand); };
    switch (node.kind) {
      case Kind::always:
        return true;
      case Kind::never:
        return false;
      case Kind::all:
        return std::all_of(node.operands.begin(), node.operands.end(), operandHolds);
      case Kind::any:
        return std::any_of(node.operands.begin(), node.operands.end(), operandHolds);
      case Kind::negation:
        return !holds(node.operands.front());
      case Kind::anchorGeneric:
        return !code_.chain.empty();
      case Kind::anchorOwn:
        // Only the platform's own components satisfy this, and those are never checked here.
        return false;
      case Kind::identifier:
        return code_.identifier == node.value;
      case Kind::codeDirectoryHash:
        return code_.codeDirectoryHash == node.value;
      case Kind::information:
        return informationMatches(node);
      default:
        return certificateMatches(node);
    }
  }

 private:
  bool certificateMatches(const RequirementNode& node) const {
    const auto count = static_cast<std::int64_t>(code_.chain.size());
    const std::int64_t place = node.certificate < 0 ? count + node.certificate : node.certificate;
    if (place < 0 || place >= count)
      return false;
    const Certificate& certificate = code_.chain[static_cast<std::size_t>(place)];
    if (node.kind == Kind::certificateField)
      return certificate.hasExtension(node.key);
    if (node.kind == Kind::certificateHash)
      return certificate.sha1Fingerprint() == node.value;
    const std::optional<std::string> field = certificate.subjectField(node.key);
    return field && (!node.value || *field == *node.value);
  }

  bool informationMatches(const RequirementNode& node) const {
    const PropertyList* value = information_ == nullptr ? nullptr : information_->valueForKey(node.key);
    if (value == nullptr || !node.value)
      return value != nullptr;
    return information_->stringForKey(node.key) == node.value;
  }

  const CodeIdentity& code_;
  const PropertyList* information_;
};

/// The clause to name for a node that does not hold: in a conjunction the first operand that does not hold.
const RequirementNode& failingNode(const RequirementNode& node, const Evaluation& evaluation) {
  if (node.kind != Kind::all)
    return node;
  const auto failing =
      std::find_if(node.operands.begin(), node.operands.end(),
                   [&](const RequirementNode& operand) { return !evaluation.holds(operand); });
  return failingNode(*failing, evaluation);
}

}  // namespace

Requirement Requirement::parse(std::string_view text) {
  try {
    return Requirement(parseRequirement(text));
  } catch (const FormatError& error) {
    throw SecurityError(errSecCSReqInvalid, sentence("The code requirement is invalid", error));
  }
}

Requirement Requirement::fromCompiled(std::string_view blob) {
  return Requirement(readCompiledRequirement(blob));
}

std::optional<std::string> Requirement::failingClause(const CodeIdentity& code,
                                                      const PropertyList* information) const {
  const Evaluation evaluation(code, information);
  if (evaluation.holds(root_))
    return std::nullopt;
  return failingNode(root_, evaluation).text;
}

}  // namespace platform
