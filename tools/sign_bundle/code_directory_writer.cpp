#include "tools/sign_bundle/code_directory_writer.hpp"

#include <array>
#include <limits>

#include "platform/foundation/error.hpp"
#include "platform/security/code_signature_format.hpp"
#include "tools/byte_writer.hpp"
#include "tools/sign_bundle/blob_writer.hpp"

namespace sign_bundle {
namespace {

namespace code_directory_version = platform::code_directory_version;
using platform::DigestAlgorithm;
using platform::digestSize;
using tools::ByteWriter;

constexpr std::size_t kHeaderSize = 88;
constexpr std::size_t kHeaderSizeWithRuntime = 96;

std::uint8_t hashType(DigestAlgorithm algorithm) {
  namespace type = platform::hash_type;
  static constexpr std::array kTypes{type::kSha1, type::kSha256, type::kSha384, type::kSha512};
  return kTypes.at(static_cast<std::size_t>(algorithm));
}

struct Layout {
  std::size_t identifierOffset = 0;
  std::size_t teamOffset = 0;
  std::size_t specialSlots = 0;
  std::size_t codeSlots = 0;
  std::size_t hashOffset = 0;
  std::size_t size = 0;
};

std::size_t pageSize(const CodeDescription& code) {
  return code.pageSizeExponent == 0 ? code.code.size() : std::size_t{1} << code.pageSizeExponent;
}

Layout layoutOf(const CodeDescription& code, DigestAlgorithm algorithm) {
  Layout layout;
  layout.identifierOffset = code.runtimeVersion ? kHeaderSizeWithRuntime : kHeaderSize;
  std::size_t end = layout.identifierOffset + code.identifier.size() + 1;
  if (!code.team.empty()) {
    layout.teamOffset = end;
    end += code.team.size() + 1;
  }
  layout.specialSlots = code.specialSlots.empty() ? 0 : code.specialSlots.rbegin()->first;
  layout.codeSlots =
      code.code.empty() ? 0 : tools::alignedUp(code.code.size(), pageSize(code)) / pageSize(code);
  layout.hashOffset = end + layout.specialSlots * digestSize(algorithm);
  layout.size = layout.hashOffset + layout.codeSlots * digestSize(algorithm);
  return layout;
}

/// The fields after the blob's header.
ByteWriter fixedFields(const CodeDescription& code, DigestAlgorithm algorithm, const Layout& layout) {
  const auto number = [](std::size_t value) { return static_cast<std::uint32_t>(value); };
  const bool large = code.code.size() > std::numeric_limits<std::uint32_t>::max();
  ByteWriter fields;
  fields
      .u32(code.runtimeVersion ? code_directory_version::kWithRuntime
                               : code_directory_version::kWithExecutableSegment)
      .u32(code.flags);
  fields.u32(number(layout.hashOffset)).u32(number(layout.identifierOffset));
  fields.u32(number(layout.specialSlots)).u32(number(layout.codeSlots));
  fields.u32(large ? std::numeric_limits<std::uint32_t>::max() : number(code.code.size()));
  fields.u8(static_cast<std::uint8_t>(digestSize(algorithm))).u8(hashType(algorithm));
  fields.u8(0).u8(static_cast<std::uint8_t>(code.pageSizeExponent));
  fields.u32(0).u32(0).u32(number(layout.teamOffset)).u32(0).u64(large ? code.code.size() : 0);
  fields.u64(code.executableSegmentBase).u64(code.executableSegmentLimit).u64(code.executableSegmentFlags);
  if (code.runtimeVersion)
    fields.u32(*code.runtimeVersion).u32(0);
  return fields;
}

}  // namespace

std::size_t codeDirectorySize(const CodeDescription& code, DigestAlgorithm algorithm) {
  return layoutOf(code, algorithm).size;
}

std::string makeCodeDirectory(const CodeDescription& code, DigestAlgorithm algorithm) {
  const std::string nul(1, '\0');
  if ((code.identifier + code.team).find('\0') != std::string::npos)
    throw platform::Error("An identifier or team must not contain a null character.");
  const Layout layout = layoutOf(code, algorithm);
  ByteWriter directory = fixedFields(code, algorithm, layout);
  directory.raw(code.identifier).raw(nul);
  if (!code.team.empty())
    directory.raw(code.team).raw(nul);
  for (std::size_t number = layout.specialSlots; number > 0; --number) {
    const auto content = code.specialSlots.find(static_cast<std::uint32_t>(number));
    directory.raw(content == code.specialSlots.end() ? std::string(digestSize(algorithm), '\0')
                                                     : digestOf(algorithm, content->second));
  }
  for (std::size_t page = 0; page < layout.codeSlots; ++page)
    directory.raw(digestOf(algorithm, code.code.substr(page * pageSize(code), pageSize(code))));
  return makeBlob(platform::magic::kCodeDirectory, directory.bytes());
}

std::string codeDirectoryHash(std::string_view codeDirectory, DigestAlgorithm algorithm) {
  return digestOf(algorithm, codeDirectory).substr(0, platform::kCodeDirectoryHashSize);
}

}  // namespace sign_bundle
