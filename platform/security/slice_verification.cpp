#include "platform/security/slice_verification.hpp"

#include <algorithm>
#include <set>

#include "platform/security/at_place.hpp"
#include "platform/security/cms_signature.hpp"

namespace platform {
namespace {

/// All directories are about the same code, each by a digest of its own, and one of the digests is strong.
void requireConsistentDirectories(const SignedSlice& slice) {
  const CodeDirectory& strongest = slice.strongestDirectory();
  if (strongest.strength() == 0)
    throw FormatError("its signature uses no digest but SHA-1, which binds nothing any more");
  std::set<int> strengths;
  for (const CodeDirectory& directory : slice.directories) {
    if (!strengths.insert(directory.strength()).second)
      throw FormatError("its signature has two code directories with the same digest");
    if (directory.identifier() != strongest.identifier() ||
        directory.teamIdentifier() != strongest.teamIdentifier() ||
        directory.isAdHoc() != strongest.isAdHoc())
      throw FormatError("its code directories differ in what they are about");
  }
}

/// The signer's chain of certificates; empty for code signed ad hoc, which nobody vouches for.
std::vector<Certificate> verifySigner(const SignedSlice& slice, AnchorSource& anchors) {
  const auto message = slice.components.find(slot::kSignature);
  const std::string_view signature = message == slice.components.end() ? std::string_view() : message->second;
  const CodeDirectory& directory = slice.strongestDirectory();
  if (signature.empty() != directory.isAdHoc())
    throw FormatError(signature.empty() ? "its signature lacks the signer"
                                        : "its signature has a signer although it is ad hoc");
  if (signature.empty())
    return {};
  std::vector<Certificate> chain = verifyCMSSignature(signature, slice.directories, anchors.anchors());
  if (directory.teamIdentifier() && directory.teamIdentifier() != chain.front().subjectField("OU"))
    throw FormatError("its team is not that of the certificate of \"" + chain.front().displayName() + "\"");
  return chain;
}

std::string_view nameOf(std::uint32_t number) {
  switch (number) {
    case slot::kInfo:
      return "Info.plist";
    case slot::kRequirements:
      return "the list of requirements";
    case slot::kResources:
      return "the resource seal";
    case slot::kEntitlements:
      return "the list of entitlements";
    default:
      return "a component of the signature";
  }
}

void verifySpecialSlot(const CodeDirectory& directory, std::uint32_t number, const std::string* component) {
  const std::optional<std::string_view> digest = directory.specialDigest(number);
  const std::string name(nameOf(number));
  if (component == nullptr && digest)
    throw FormatError(name + " is missing");
  if (component != nullptr && !digest && number <= slot::kLastKnownSpecial)
    throw FormatError(name + " was added after signing");
  if (component != nullptr && digest && directory.digestOf(*component) != *digest)
    throw FormatError(name + " was changed after signing");
}

void verifySpecialSlots(const SignedSlice& slice, const BoundFiles* files) {
  const CodeDirectory& directory = slice.strongestDirectory();
  const std::uint32_t last = std::max(directory.specialSlotCount(), slot::kLastKnownSpecial);
  for (std::uint32_t number = 1; number <= last; ++number) {
    const auto found = slice.components.find(number);
    const std::string* component = found == slice.components.end() ? nullptr : &found->second;
    if (number == slot::kInfo && files != nullptr)
      component = &files->information;
    else if (number == slot::kResources && files != nullptr)
      component = &files->resources;
    else if (number == slot::kInfo && slice.informationSection && directory.specialDigest(number))
      // Without a digest of its own, the section is bound by the pages that it lies in.
      component = &*slice.informationSection;
    verifySpecialSlot(directory, number, component);
  }
}

}  // namespace

const TrustAnchors& AnchorSource::anchors() {
  if (!anchors_)
    anchors_ = TrustAnchors::inDirectory(directory_);
  return *anchors_;
}

CodeIdentity verifySlice(const SignedSlice& slice, const BoundFiles* files, AnchorSource& anchors) {
  return atPlace(slice.place, errSecCSSignatureFailed, [&] {
    const CodeDirectory& directory = slice.strongestDirectory();
    requireConsistentDirectories(slice);
    if (directory.codeLimit() != slice.code.length)
      throw FormatError("the pages of the code directory do not cover the code");
    CodeIdentity identity{.place = slice.place,
                          .identifier = directory.identifier(),
                          .teamIdentifier = directory.teamIdentifier(),
                          .codeDirectoryHash = directory.codeDirectoryHash(),
                          .chain = verifySigner(slice, anchors)};
    verifySpecialSlots(slice, files);
    return identity;
  });
}

}  // namespace platform
