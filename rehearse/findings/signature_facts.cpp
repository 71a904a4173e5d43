#include "rehearse/findings/signature_facts.hpp"

#include <algorithm>

#include "platform/formats/property_list.hpp"
#include "platform/security/at_place.hpp"
#include "platform/security/cms_signature.hpp"
#include "platform/security/signed_code.hpp"

namespace rehearse {
namespace {

using platform::Directory;
using platform::PropertyList;
using platform::SignedSlice;
using platform::URL;

constexpr const char* kLeafMark = "1.2.840.113635.100.6.1.13";
constexpr const char* kIntermediateMark = "1.2.840.113635.100.6.2.6";

std::string component(const SignedSlice& slice, std::uint32_t number) {
  const auto found = slice.components.find(number);
  return found == slice.components.end() ? std::string() : found->second;
}

std::string listText(const PropertyList& value);

std::string valueText(const PropertyList& value) {
  if (const std::string* text = value.string())
    return *text;
  if (const auto boolean = value.boolean())
    return *boolean ? "true" : "false";
  if (const auto integer = value.integer())
    return std::to_string(*integer);
  return listText(value);
}

std::string listText(const PropertyList& value) {
  std::string text;
  const auto add = [&text](const std::string& item) { text += (text.empty() ? "" : ", ") + item; };
  if (value.array() != nullptr) {
    for (const PropertyList& item : *value.array())
      add(valueText(item));
  } else if (value.dictionary() != nullptr) {
    for (const auto& [key, item] : *value.dictionary())
      add(key + ": " + valueText(item));
  }
  return "(" + text + ")";
}

std::map<std::string, std::string> entitlementsOf(const SignedSlice& slice) {
  const std::string blob = component(slice, platform::slot::kEntitlements);
  std::map<std::string, std::string> entitlements;
  if (blob.empty())
    return entitlements;
  const PropertyList list = platform::NSPropertyListSerialization::propertyListWithData(
      platform::Data(std::string(platform::blobPayload(blob))));
  if (list.dictionary() == nullptr)
    throw platform::FormatError("its list of entitlements is not a dictionary");
  for (const auto& [key, value] : *list.dictionary())
    entitlements.emplace(key, valueText(value));
  return entitlements;
}

std::string designatedRequirementOf(const SignedSlice& slice) {
  const std::string set = component(slice, platform::slot::kRequirements);
  if (set.empty())
    return {};
  return std::string(platform::designatedRequirement(set).value_or(std::string_view()));
}

platform::ClaimedSigner signerOf(const SignedSlice& slice) {
  const std::string message = component(slice, platform::slot::kSignature);
  return message.empty() ? platform::ClaimedSigner() : platform::readClaimedSigner(message);
}

SignatureFacts factsOf(const std::vector<SignedSlice>& slices) {
  SignatureFacts facts;
  bool allStamped = true;
  for (const SignedSlice& slice : slices) {
    const platform::CodeDirectory& directory = slice.strongestDirectory();
    platform::ClaimedSigner signer = signerOf(slice);
    facts.hasHardenedRuntime &= directory.hasHardenedRuntime();
    allStamped &= signer.stamped.has_value();
    facts.stamped = std::max(facts.stamped, signer.stamped);
    facts.identities.push_back({.place = slice.place,
                                .identifier = directory.identifier(),
                                .teamIdentifier = directory.teamIdentifier(),
                                .codeDirectoryHash = directory.codeDirectoryHash(),
                                .chain = std::move(signer.chain)});
  }
  if (!allStamped)
    facts.stamped.reset();
  facts.entitlements = entitlementsOf(slices.front());
  facts.hasOtherEntitlements = component(slices.front(), platform::slot::kEntitlements).empty() &&
                               !component(slices.front(), platform::slot::kEntitlementsDER).empty();
  facts.designatedRequirement = designatedRequirementOf(slices.front());
  return facts;
}

}  // namespace

std::optional<std::string> SignatureFacts::team() const {
  return identity().chain.empty() ? std::nullopt : identity().chain.front().subjectField("OU");
}

bool SignatureFacts::isDeveloperID() const {
  return std::ranges::all_of(identities, [](const platform::CodeIdentity& code) {
    return code.chain.size() > 1 && code.chain[0].hasExtension(kLeafMark) &&
           code.chain[1].hasExtension(kIntermediateMark);
  });
}

SignatureFacts readSignatureFacts(const URL& file, const std::optional<Directory>& signatures) {
  return platform::atPlace(platform::quoted(file.path()), platform::errSecCSSignatureFailed, [&] {
    return factsOf(
        platform::readSignedCode(platform::CodeFile(platform::Entry::at(file)), signatures).slices);
  });
}

}  // namespace rehearse
