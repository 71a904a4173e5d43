#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>

#include "platform/formats/byte_reader.hpp"
#include "platform/foundation/text.hpp"
#include "platform/security/code_blobs.hpp"
#include "platform/security/requirement.hpp"

namespace platform {
namespace {

using Kind = RequirementNode::Kind;

constexpr unsigned kDeepestNesting = 128;
constexpr std::size_t kHashSize = 20;
constexpr std::uint32_t kExpressionForm = 1;

namespace operation {
constexpr std::uint32_t kNever = 0;
constexpr std::uint32_t kAlways = 1;
constexpr std::uint32_t kIdentifier = 2;
constexpr std::uint32_t kOwnAnchor = 3;
constexpr std::uint32_t kCertificateHash = 4;
constexpr std::uint32_t kInformationValue = 5;
constexpr std::uint32_t kAnd = 6;
constexpr std::uint32_t kOr = 7;
constexpr std::uint32_t kCodeDirectoryHash = 8;
constexpr std::uint32_t kNot = 9;
constexpr std::uint32_t kInformationField = 10;
constexpr std::uint32_t kCertificateField = 11;
constexpr std::uint32_t kTrustedAnchor = 13;
constexpr std::uint32_t kCertificateExtension = 14;
constexpr std::uint32_t kGenericAnchor = 15;
}  // namespace operation

[[noreturn]] void refuseUnknown() {
  throw FormatError("it has a condition that is not known here");
}

std::string inQuotes(std::string_view text) {
  return "\"" + std::string(text) + "\"";
}

/// An object identifier in dotted form, from the content of its DER encoding (ITU-T X.690, section 8.19).
std::string dotted(std::string_view content) {
  constexpr std::uint64_t kMostBeforeShift = std::numeric_limits<std::uint64_t>::max() >> 7U;
  std::string text;
  std::uint64_t component = 0;
  bool ended = false;
  for (const char byte : content) {
    const auto bits = static_cast<std::uint8_t>(byte);
    if (component > kMostBeforeShift)
      throw FormatError("it asks for a certificate's extension with an invalid type");
    component = component << 7U | (bits & 0x7FU);
    ended = bits < 0x80;
    if (!ended)
      continue;
    if (text.empty()) {
      const std::uint64_t first = std::min<std::uint64_t>(component / 40, 2);
      text = std::to_string(first) + "." + std::to_string(component - 40 * first);
    } else {
      text += "." + std::to_string(component);
    }
    component = 0;
  }
  if (!ended)
    throw FormatError("it asks for a certificate's extension with an invalid type");
  return text;
}

/// Reads operations in prefix order.
class Reader {
 public:
  explicit Reader(std::string_view expression) : reader_(expression, "the compiled requirement") {}

  RequirementNode read() {
    if (reader_.readU32() != kExpressionForm)
      refuseUnknown();
    RequirementNode root = node(kDeepestNesting);
    if (reader_.position() != reader_.size())
      throw FormatError("the compiled requirement has trailing data");
    return root;
  }

 private:
  RequirementNode node(unsigned depth) {
    if (depth == 0)
      throw FormatError("it is nested too deeply");
    switch (reader_.readU32()) {
      case operation::kNever:
        return {.kind = Kind::never, .text = "never"};
      case operation::kAlways:
        return {.kind = Kind::always, .text = "always"};
      case operation::kAnd:
        return pair(Kind::all, " and ", depth);
      case operation::kOr:
        return pair(Kind::any, " or ", depth);
      case operation::kNot:
        return negation(depth);
      case operation::kOwnAnchor:
        return {.kind = Kind::anchorOwn, .text = "anchor apple"};
      case operation::kGenericAnchor:
        return {.kind = Kind::anchorGeneric, .text = "anchor apple generic"};
      case operation::kTrustedAnchor:
        return {.kind = Kind::anchorGeneric, .text = "anchor trusted"};
      case operation::kIdentifier:
        return withValue({.kind = Kind::identifier, .text = "identifier "}, text());
      case operation::kCodeDirectoryHash:
        return withHash({.kind = Kind::codeDirectoryHash, .text = "cdhash "});
      case operation::kCertificateHash:
        return withHash(certificate(Kind::certificateHash, " = "));
      case operation::kInformationValue:
        return informationValue();
      case operation::kInformationField:
        return informationField();
      case operation::kCertificateField:
        return certificateSubject();
      case operation::kCertificateExtension:
        return certificateExtension();
      default:
        refuseUnknown();
    }
  }

  RequirementNode pair(Kind kind, const char* word, unsigned depth) {
    RequirementNode result{.kind = kind};
    result.operands.push_back(node(depth - 1));
    result.operands.push_back(node(depth - 1));
    result.text = "(" + result.operands.front().text + word + result.operands.back().text + ")";
    return result;
  }

  RequirementNode negation(unsigned depth) {
    RequirementNode result{.kind = Kind::negation};
    result.operands.push_back(node(depth - 1));
    result.text = "!" + result.operands.front().text;
    return result;
  }

  RequirementNode certificate(Kind kind, const char* rest) {
    const auto place = static_cast<std::int32_t>(reader_.readU32());
    return {.kind = kind, .certificate = place, .text = "certificate " + std::to_string(place) + rest};
  }

  RequirementNode certificateSubject() {
    constexpr std::string_view kSubject = "subject.";
    RequirementNode result = certificate(Kind::certificateSubject, "[");
    const std::string key = text();
    if (!key.starts_with(kSubject) || !Certificate::isSubjectField(key.substr(kSubject.size())))
      refuseUnknown();
    result.key = key.substr(kSubject.size());
    result.text += key + "]";
    return withMatch(std::move(result));
  }

  RequirementNode certificateExtension() {
    RequirementNode result = certificate(Kind::certificateField, "[field.");
    result.key = dotted(data());
    result.text += result.key + "]";
    result = withMatch(std::move(result));
    if (result.value)
      refuseUnknown();
    return result;
  }

  RequirementNode information() {
    RequirementNode result{.kind = Kind::information, .key = text()};
    result.text = "info[" + result.key + "]";
    return result;
  }
  RequirementNode informationValue() {
    RequirementNode result = information();
    result.text += " = ";
    return withValue(std::move(result), text());
  }
  RequirementNode informationField() { return withMatch(information()); }

  RequirementNode withValue(RequirementNode result, std::string_view value) {
    result.value = value;
    result.text += inQuotes(value);
    return result;
  }

  RequirementNode withHash(RequirementNode result) {
    const std::string_view hash = data();
    if (hash.size() != kHashSize)
      throw FormatError("a hash must have 20 bytes");
    result.value = hash;
    result.text += "H" + inQuotes(hexadecimal(hash));
    return result;
  }

  RequirementNode withMatch(RequirementNode result) {
    constexpr std::uint32_t kExists = 0;
    constexpr std::uint32_t kEqual = 1;
    const std::uint32_t match = reader_.readU32();
    if (match == kExists) {
      result.text += " exists";
      return result;
    }
    if (match != kEqual)
      refuseUnknown();
    result.text += " = ";
    return withValue(std::move(result), text());
  }

  /// Data that becomes part of a text.
  std::string text() {
    const std::optional<std::string> text = stringFromUTF8(data());
    if (!text)
      throw FormatError("it has a string that is not valid UTF-8");
    return *text;
  }

  /// A length and that many bytes, padded to a multiple of four.
  std::string_view data() {
    const std::uint32_t length = reader_.readU32();
    const std::string_view bytes = reader_.readBytes(length);
    reader_.skip((4 - length % 4) % 4);
    return bytes;
  }

  ByteReader reader_;
};

}  // namespace

RequirementNode readCompiledRequirement(std::string_view blob) {
  return Reader(blobPayload(blob)).read();
}

}  // namespace platform
