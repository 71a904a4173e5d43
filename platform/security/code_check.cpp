#include "platform/security/code_check.hpp"

#include "platform/security/at_place.hpp"
#include "platform/security/resource_check.hpp"

namespace platform {
namespace {

constexpr unsigned kDeepestCode = 16;
constexpr std::uint64_t kLargestSeal = 32U << 20U;
/// In bytes. Real ones have a few hundred; parsing takes many times the memory.
constexpr std::size_t kLongestRequirement = 64U << 10U;

/// The Info.plist embedded in a file; nothing when it is missing or unreadable.
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

Requirement sealedRequirement(const std::string& path, const std::string& text) {
  if (text.size() > kLongestRequirement)
    throw SecurityError(errSecCSBadResource,
                        platform::quoted(path) + " is sealed with a requirement that is too long.");
  try {
    return Requirement::parse(text);
  } catch (const SecurityError& error) {
    throw SecurityError(errSecCSBadResource,
                        sentence(platform::quoted(path) + " is sealed with a bad requirement", error));
  }
}

}  // namespace

void CodeCheck::check(const Directory& parent, const std::string& name, const Acceptance& accept,
                      unsigned depth) {
  const std::string place = platform::quoted(parent.pathOf(name));
  if (depth > kDeepestCode)
    throw SecurityError(errSecCSBadResource, place + " is code nested too deeply.");
  atPlace(place, errSecCSSignatureFailed, [&] {
    if (parent.kindOf(name) != ItemKind::directory) {
      checkFile(CodeFile(parent.entry(name)), accept, depth);
      return;
    }
    for (Bundle& bundle : openBundles(parent.subdirectory(name)))
      checkBundle(std::move(bundle), accept, depth);
  });
}

void CodeCheck::checkFile(CodeFile file, const Acceptance& accept, unsigned depth) {
  const auto code = std::make_shared<const SignedCode>(readSignedCode(std::move(file), std::nullopt));
  work_.parse(code->file->path(), code->bytesRead);
  CheckedCode checked{.identities = verifySlices(*code, nullptr), .information = carriedInformation(*code)};
  submitPages(code);
  // An embedded Info.plist may be covered by the pages alone, so `accept` must not see it before they are
  // checked.
  if (depth == 0)
    finish();
  accept(checked);
}

void CodeCheck::checkBundle(Bundle bundle, const Acceptance& accept, unsigned depth) {
  constexpr std::uint64_t kBytesOfAState = 8;  // take as long to parse as one state
  const std::string& path = bundle.content.path();
  atPlace(platform::quoted(path), errSecCSSignatureFailed, [&] {
    std::optional<Directory> signatures;
    if (bundle.content.kindOf("_CodeSignature"))
      signatures = bundle.content.subdirectory("_CodeSignature");
    const auto code = std::make_shared<const SignedCode>(readSignedCode(bundle.openExecutable(), signatures));
    if (!signatures || !signatures->kindOf("CodeResources"))
      throw SecurityError(errSecCSBadResource, platform::quoted(path) + " has no resource seal.");
    const BoundFiles files{.information = std::move(bundle.informationBytes),
                           .resources = CodeFile(signatures->entry("CodeResources")).content(kLargestSeal)};
    // Each architecture's code directory has a digest of these files.
    work_.parse(path,
                code->bytesRead + (files.information.size() + files.resources.size()) * code->slices.size());
    accept({.identities = verifySlices(*code, &files), .information = std::move(bundle.information)});
    submitPages(code);
    auto seal = readingPropertyList(signatures->pathOf("CodeResources"), [&] {
      return std::make_shared<const ResourceSeal>(ResourceSeal::read(Data(files.resources)));
    });
    work_.parse(path, seal->rules.size() * kBytesOfAState);
    const auto nested = [&](const Directory& parent, const ListedItem& entry, const SealedCode& sealed) {
      checkNested(parent, entry, sealed, depth);
    };
    ResourceCheck(bundle, std::move(seal), nested, work_, pool_).run();
  });
}

std::vector<CodeIdentity> CodeCheck::verifySlices(const SignedCode& code, const BoundFiles* files) {
  std::vector<CodeIdentity> identities;
  for (const SignedSlice& slice : code.slices) {
    identities.push_back(verifySlice(slice, files, anchors_));
    // Identifiers may differ: a linker may derive them from each architecture's code.
    if (identities.back().teamIdentifier != identities.front().teamIdentifier)
      throw SecurityError(errSecCSSignatureFailed,
                          slice.place + " is signed by another team than the other architectures.");
  }
  return identities;
}

void CodeCheck::submitPages(const std::shared_ptr<const SignedCode>& code) {
  for (const SignedSlice& slice : code->slices)
    submitPageChecks(code, slice, work_, pool_);
}

void CodeCheck::checkNested(const Directory& parent, const ListedItem& entry, const SealedCode& sealed,
                            unsigned depth) {
  const std::string path = parent.pathOf(entry.name);
  if (entry.kind == ItemKind::link)
    throw SecurityError(errSecCSBadResource,
                        platform::quoted(path) + " was replaced by a link after signing.");
  if (!sealed.requirement) {
    // A hash identifies one architecture of one version; no other would be covered.
    const auto isSealed = [&](const CheckedCode& code) {
      for (const CodeIdentity& identity : code.identities) {
        if (identity.codeDirectoryHash != sealed.codeDirectoryHash)
          throw SecurityError(errSecCSBadResource, identity.place + " is not the code that was sealed.");
      }
    };
    check(parent, entry.name, isSealed, depth + 1);
    return;
  }
  const Requirement requirement = sealedRequirement(path, *sealed.requirement);
  const auto satisfies = [&](const CheckedCode& code) {
    work_.parse(path, sealed.requirement->size() * code.identities.size());
    requireSatisfied(code, requirement, errSecCSBadResource);
  };
  check(parent, entry.name, satisfies, depth + 1);
}

void requireSatisfied(const CheckedCode& code, const Requirement& requirement, OSStatus status) {
  const PropertyList* information = code.information ? &*code.information : nullptr;
  for (const CodeIdentity& identity : code.identities) {
    if (const auto clause = requirement.failingClause(identity, information))
      throw SecurityError(status, sentence(identity.place + " does not satisfy the requirement", *clause));
  }
}

}  // namespace platform
