#include "tools/sign_bundle/signature_writer.hpp"

#include <array>

#include "tools/sign_bundle/requirement_writer.hpp"

namespace sign_bundle {
namespace {

namespace slot = platform::slot;
using platform::DigestAlgorithm;

/// Ample for a CMS message with three certificates, attributes and a signature; a time stamp takes as much
/// again.
constexpr std::size_t kRoomForSignature = std::size_t{12} * 1024;
constexpr std::size_t kRoomForBlobIndex = 256;

/// Special slots whose content is a component of the signature rather than a file.
constexpr std::array kEmbeddedSlots = {slot::kRequirements, slot::kEntitlements, kLaterSlot};

}  // namespace

CodeSignature signCode(const CodeDescription& code, const SigningIdentity* identity,
                       const SignatureOptions& options) {
  CodeSignature signature;
  std::vector<SignedCodeDirectory> directories;
  for (const DigestAlgorithm algorithm : options.digests)
    directories.push_back({algorithm, makeCodeDirectory(code, algorithm)});
  std::uint32_t place = slot::kCodeDirectory;
  for (const SignedCodeDirectory& directory : directories) {
    signature.components.emplace(place, directory.blob);
    place = place == slot::kCodeDirectory ? slot::kFirstAlternate : place + 1;
  }
  for (const std::uint32_t embedded : kEmbeddedSlots) {
    if (const auto content = code.specialSlots.find(embedded); content != code.specialSlots.end())
      signature.components.insert(*content);
  }
  const std::string message =
      identity == nullptr ? std::string() : signCodeDirectories(directories, *identity, options.message);
  signature.components.emplace(slot::kSignature, makeBlob(platform::magic::kWrapper, message));

  const SignedCodeDirectory& strongest = directories.back();
  signature.sealed.codeDirectoryHash = codeDirectoryHash(strongest.blob, strongest.algorithm);
  signature.sealed.requirementText =
      identity == nullptr ? codeDirectoryHashRequirementText(signature.sealed.codeDirectoryHash)
                          : designatedRequirement(code.identifier, *identity).text;
  return signature;
}

std::size_t largestSignatureSize(const CodeDescription& code, const SigningIdentity* identity,
                                 const SignatureOptions& options) {
  std::size_t size = kRoomForBlobIndex;
  for (const DigestAlgorithm algorithm : options.digests)
    size += codeDirectorySize(code, algorithm);
  for (const std::uint32_t embedded : kEmbeddedSlots) {
    if (const auto content = code.specialSlots.find(embedded); content != code.specialSlots.end())
      size += content->second.size();
  }
  if (identity != nullptr)
    size += options.message.timeStamp ? 2 * kRoomForSignature : kRoomForSignature;
  return size;
}

}  // namespace sign_bundle
