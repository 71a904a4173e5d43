#include <algorithm>
#include <set>

#include "platform/foundation/error.hpp"
#include "platform/security/code_file.hpp"
#include "platform/security/mach_o.hpp"
#include "platform/security/security_error.hpp"
#include "rehearse/findings/finding_kinds.hpp"
#include "rehearse/findings/judgements.hpp"
#include "rehearse/start/load_check.hpp"

namespace rehearse {
namespace {

using platform::CodeIdentity;
using platform::URL;

constexpr const char* kWithoutValidation = "com.apple.security.cs.disable-library-validation";

/// The hardened runtime admits only libraries of the executable's team, and those of the system.
bool validatesLibraries(const SignatureFacts& signature) {
  const auto found = signature.entitlements.find(kWithoutValidation);
  return signature.hasHardenedRuntime && signature.identity().teamIdentifier &&
         (found == signature.entitlements.end() || found->second != "true");
}

/// What is loaded before the application runs, for any of its architectures.
std::set<std::string> loadedLibraries(const BundleFacts& bundle) {
  std::set<std::string> libraries;
  const platform::CodeFile file(
      platform::Entry::at(URL::fileURLWithPath((bundle.tree.root() / bundle.executable->path).native())));
  const auto slices = platform::readMachO(file);
  if (!slices)
    return libraries;
  for (const platform::MachOSlice& slice : *slices) {
    LoadCheck check(bundle.tree, slice.architecture);
    // The judgement of the start says what is missing.
    static_cast<void>(
        check.missingLibraries(bundle.executable->path, platform::readMachOLinkage(file, slice.range)));
    const std::vector<std::string> loaded = check.loadedLibraries();
    libraries.insert(loaded.begin(), loaded.end());
  }
  return libraries;
}

/// The library's team in words; nothing when it is `team`.
std::optional<std::string> otherTeam(const URL& library, const std::optional<std::string>& team) {
  try {
    const SignatureFacts signature = readSignatureFacts(library, std::nullopt);
    const auto other = std::ranges::find_if(
        signature.identities, [&](const CodeIdentity& code) { return code.teamIdentifier != team; });
    if (other == signature.identities.end())
      return std::nullopt;
    return other->teamIdentifier ? "signed by " + platform::quoted(*other->teamIdentifier)
                                 : std::string("signed without a team");
  } catch (const platform::SecurityError&) {
    return "not signed";
  }
}

}  // namespace

void judgeLibraries(const BundleFacts&, const BundleFacts& offered, std::vector<Finding>& findings) {
  if (!offered.signature || !validatesLibraries(*offered.signature))
    return;
  const std::optional<std::string>& team = offered.signature->identity().teamIdentifier;
  std::string others;
  for (const std::string& library : loadedLibraries(offered)) {
    const auto other = otherTeam(URL::fileURLWithPath((offered.tree.root() / library).native()), team);
    if (other)
      others += (others.empty() ? "" : ", ") + platform::quoted(library) + " is " + *other;
  }
  if (!others.empty())
    findings.push_back(finding("library-of-other-team",
                               "Under the hardened runtime an executable that is signed by " +
                                   platform::quoted(*team) + " cannot load libraries of others, and " +
                                   others + ": the application does not start."));
}

}  // namespace rehearse
