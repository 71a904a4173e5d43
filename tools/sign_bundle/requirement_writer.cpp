#include "tools/sign_bundle/requirement_writer.hpp"

#include <cstdint>

#include "platform/foundation/bytes.hpp"
#include "platform/security/code_signature_format.hpp"
#include "tools/byte_writer.hpp"
#include "tools/sign_bundle/blob_writer.hpp"

namespace sign_bundle {
namespace {

using tools::ByteWriter;

/// What a later version of the code must satisfy.
constexpr std::uint32_t kDesignatedRequirement = 3;
constexpr std::uint32_t kExpressionForm = 1;

enum Operation : std::uint32_t {
  kIdentifier = 2,
  kCertificateHash = 4,
  kAnd = 6,
  kCertificateField = 11,
  kCertificateExtension = 14,
  kGenericAnchor = 15,
};
enum Match : std::uint32_t { kExists = 0, kEqual = 1 };
constexpr std::uint32_t kLeaf = 0;
constexpr std::uint32_t kIntermediate = 1;

/// Appends operations in prefix order.
class ExpressionWriter {
 public:
  ExpressionWriter() { writer_.u32(kExpressionForm); }

  ExpressionWriter& operation(Operation operation) { return number(operation); }
  ExpressionWriter& number(std::uint32_t value) {
    writer_.u32(value);
    return *this;
  }
  ExpressionWriter& data(std::string_view bytes) {
    writer_.u32(static_cast<std::uint32_t>(bytes.size())).raw(bytes);
    writer_.zerosUpTo(tools::alignedUp(writer_.size(), 4));
    return *this;
  }
  ExpressionWriter& extensionExists(std::uint32_t certificate, const char* identifier) {
    const openssl::Object object = objectIdentifier(identifier);
    const std::string content(reinterpret_cast<const char*>(::OBJ_get0_data(object.get())),
                              ::OBJ_length(object.get()));
    return operation(kCertificateExtension).number(certificate).data(content).number(kExists);
  }
  std::string blob() const { return makeBlob(platform::magic::kRequirement, writer_.bytes()); }

 private:
  ByteWriter writer_;
};

std::string identifierText(std::string_view identifier) {
  return "identifier \"" + std::string(identifier) + "\"";
}

std::string hashText(std::string_view bytes) {
  return "H\"" + platform::hexadecimal(bytes) + "\"";
}

/// Identifier, the platform's anchor, the markers of both certificates, and the team in the leaf.
Requirement developerIDRequirement(std::string_view identifier, std::string_view team) {
  std::string text = identifierText(identifier) + " and anchor apple generic and certificate 1[field.";
  text.append(kIntermediateMarker).append("] /* exists */ and certificate leaf[field.");
  text.append(kLeafMarker).append("] /* exists */ and certificate leaf[subject.OU] = \"");
  text.append(team).append("\"");

  ExpressionWriter expression;
  for (int conjunction = 0; conjunction < 4; ++conjunction)
    expression.operation(kAnd);
  expression.operation(kIdentifier).data(identifier);
  expression.operation(kGenericAnchor);
  expression.extensionExists(kIntermediate, kIntermediateMarker);
  expression.extensionExists(kLeaf, kLeafMarker);
  expression.operation(kCertificateField).number(kLeaf).data("subject.OU").number(kEqual).data(team);
  return {text, expression.blob()};
}

/// Identifier and leaf certificate.
Requirement certificateRequirement(std::string_view identifier, std::string_view certificateDigest) {
  ExpressionWriter expression;
  expression.operation(kAnd).operation(kIdentifier).data(identifier);
  expression.operation(kCertificateHash).number(kLeaf).data(certificateDigest);
  return {identifierText(identifier) + " and certificate leaf = " + hashText(certificateDigest),
          expression.blob()};
}

}  // namespace

Requirement designatedRequirement(std::string_view identifier, const SigningIdentity& identity) {
  return identity.isDeveloperID ? developerIDRequirement(identifier, identity.team)
                                : certificateRequirement(identifier, identity.leafDigest);
}

std::string makeRequirementSet(std::string_view identifier, const SigningIdentity* identity) {
  Components requirements;
  if (identity != nullptr)
    requirements.emplace(kDesignatedRequirement, designatedRequirement(identifier, *identity).blob);
  return makeSuperBlob(platform::magic::kRequirementSet, requirements);
}

std::string codeDirectoryHashRequirementText(std::string_view codeDirectoryHash) {
  return "cdhash " + hashText(codeDirectoryHash);
}

}  // namespace sign_bundle
