#include "platform/security/code_check.hpp"

#include "platform/security/refusal.hpp"
#include "platform/security/resource_check.hpp"

namespace platform {
namespace {

constexpr unsigned kDeepestCode = 16;
constexpr std::uint64_t kLargestSeal = 32U << 20U;

/// The Info.plist that a file carries itself, as far as it can be read.
std::optional<PropertyList> carriedInformation(const SignedCode& code) {
  const std::optional<std::string>& section = code.slices.front().informationSection;
  if (!section)
    return std::nullopt;
  try {
    return NSPropertyListSerialization::propertyListWithData(Data(*section));
  } catch (const PropertyListError&) {
    return std::nullopt;
  }
}

}  // namespace

std::vector<CheckedCode> CodeCheck::check(const Directory& parent, const std::string& name, unsigned depth) {
  const std::string place = quoted(parent.pathOf(name));
  if (depth > kDeepestCode)
    throw SecurityError(errSecCSBadResource, place + " is code nested too deeply.");
  return atPlace(place, errSecCSSignatureFailed, [&] {
    std::vector<CheckedCode> checked;
    if (parent.kindOf(name) == ItemKind::directory) {
      const Directory root = parent.subdirectory(name);
      // Links lead anywhere in the code that is judged, and nowhere else.
      for (const Bundle& bundle : openBundles(depth == 0 ? root.asOutermost() : root))
        checked.push_back(checkBundle(bundle, depth));
    } else {
      checked.push_back(checkFile(parent.openFile(name)));
    }
    return checked;
  });
}

CheckedCode CodeCheck::checkFile(CodeFile file) {
  const auto code = std::make_shared<const SignedCode>(readSignedCode(std::move(file), std::nullopt));
  std::vector<CodeIdentity> identities = checkSlices(code, nullptr);
  return {.identities = std::move(identities), .information = carriedInformation(*code)};
}

CheckedCode CodeCheck::checkBundle(const Bundle& bundle, unsigned depth) {
  const std::string place = quoted(bundle.content.path());
  return atPlace(place, errSecCSSignatureFailed, [&] {
    std::optional<Directory> signatures;
    if (bundle.content.kindOf("_CodeSignature"))
      signatures = bundle.content.subdirectory("_CodeSignature");
    const auto code = std::make_shared<const SignedCode>(readSignedCode(bundle.openExecutable(), signatures));
    if (!signatures || !signatures->kindOf("CodeResources"))
      throw SecurityError(errSecCSBadResource, place + " has no resource seal.");
    const BoundFiles files{.information = bundle.informationBytes,
                           .resources = signatures->readFile("CodeResources", kLargestSeal)};
    std::vector<CodeIdentity> identities = checkSlices(code, &files);
    auto seal = std::make_shared<const ResourceSeal>(ResourceSeal::read(Data(files.resources)));
    const auto nested = [&](const Directory& parent, const DirectoryEntry& entry, const SealedCode& sealed) {
      checkNested(parent, entry, sealed, depth);
    };
    ResourceCheck(bundle, std::move(seal), nested, pool_).run();
    return CheckedCode{.identities = std::move(identities), .information = bundle.information};
  });
}

std::vector<CodeIdentity> CodeCheck::checkSlices(const std::shared_ptr<const SignedCode>& code,
                                                 const BoundFiles* files) {
  std::vector<CodeIdentity> identities;
  for (const SignedSlice& slice : code->slices) {
    identities.push_back(verifySlice(code, slice, files, anchors_, pool_));
    // Identifiers may differ: a linker may have derived them from each architecture's code.
    if (identities.back().teamIdentifier != identities.front().teamIdentifier)
      throw SecurityError(errSecCSSignatureFailed,
                          slice.place + " is signed by another team than the other architectures.");
  }
  return identities;
}

void CodeCheck::checkNested(const Directory& parent, const DirectoryEntry& entry, const SealedCode& sealed,
                            unsigned depth) {
  const std::string path = parent.pathOf(entry.name);
  if (entry.kind == ItemKind::link)
    throw SecurityError(errSecCSBadResource, quoted(path) + " was replaced by a link after signing.");
  const std::vector<CheckedCode> checked = check(parent, entry.name, depth + 1);
  if (sealed.requirement) {
    try {
      requireSatisfied(checked, Requirement::parse(*sealed.requirement), errSecCSBadResource);
    } catch (const SecurityError& error) {
      throw SecurityError(errSecCSBadResource, error.localizedDescription());
    }
    return;
  }
  // A hash names one architecture of one version, and nothing vouches for another beside it.
  for (const CheckedCode& code : checked) {
    for (const CodeIdentity& identity : code.identities) {
      if (identity.codeDirectoryHash != sealed.codeDirectoryHash)
        throw SecurityError(errSecCSBadResource, identity.place + " is not the code that was sealed.");
    }
  }
}

void requireSatisfied(const std::vector<CheckedCode>& checked, const Requirement& requirement,
                      OSStatus status) {
  for (const CheckedCode& code : checked) {
    const PropertyList* information = code.information ? &*code.information : nullptr;
    for (const CodeIdentity& identity : code.identities) {
      if (const auto clause = requirement.failingClause(identity, information))
        throw SecurityError(status, identity.place + " does not satisfy the requirement: " + *clause + ".");
    }
  }
}

}  // namespace platform
