#include "tools/sign_bundle/requirement_writer.hpp"

#include <cstdint>

#include "tools/sign_bundle/blob_writer.hpp"
#include "tools/sign_bundle/byte_writer.hpp"
#include "tools/sign_bundle/code_signing_constants.hpp"
#include "tools/sign_bundle/openssl_objects.hpp"

namespace sign_bundle {
namespace {

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
    writer_.zerosUpTo(alignedUp(writer_.size(), 4));
    return *this;
  }
  ExpressionWriter& extensionExists(std::uint32_t certificate, const char* identifier) {
    const ObjectIdentifier object = objectIdentifier(identifier);
    const std::string content(reinterpret_cast<const char*>(::OBJ_get0_data(object.get())),
                              ::OBJ_length(object.get()));
    return operation(kCertificateExtension).number(certificate).data(content).number(kExists);
  }
  std::string blob() const { return makeBlob(magic::kRequirement, writer_.bytes()); }

 private:
  ByteWriter writer_;
};

std::string identifierText(std::string_view identifier) {
  return "identifier \"" + std::string(identifier) + "\"";
}

std::string hashText(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text = "H\"";
  for (const char character : bytes) {
    const auto byte = static_cast<unsigned char>(character);
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 0xFU];
  }
  return text + "\"";
}

}  // namespace

Requirement developerIDRequirement(std::string_view identifier, std::string_view team) {
  std::string text = identifierText(identifier) + " and anchor apple generic and certificate 1[field.";
  text.append(kIntermediateExtension).append("] /* exists */ and certificate leaf[field.");
  text.append(kLeafExtension).append("] /* exists */ and certificate leaf[subject.OU] = \"");
  text.append(team).append("\"");

  ExpressionWriter expression;
  for (int conjunction = 0; conjunction < 4; ++conjunction)
    expression.operation(kAnd);
  expression.operation(kIdentifier).data(identifier);
  expression.operation(kGenericAnchor);
  expression.extensionExists(kIntermediate, kIntermediateExtension);
  expression.extensionExists(kLeaf, kLeafExtension);
  expression.operation(kCertificateField).number(kLeaf).data("subject.OU").number(kEqual).data(team);
  return {text, expression.blob()};
}

Requirement certificateRequirement(std::string_view identifier, std::string_view certificateDigest) {
  ExpressionWriter expression;
  expression.operation(kAnd).operation(kIdentifier).data(identifier);
  expression.operation(kCertificateHash).number(kLeaf).data(certificateDigest);
  return {identifierText(identifier) + " and certificate leaf = " + hashText(certificateDigest),
          expression.blob()};
}

std::string codeDirectoryHashRequirementText(std::string_view codeDirectoryHash) {
  return "cdhash " + hashText(codeDirectoryHash);
}

}  // namespace sign_bundle
