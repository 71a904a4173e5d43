#include <array>
#include <ctime>

#include "platform/foundation/error.hpp"
#include "platform/security/security_error.hpp"
#include "rehearse/findings/finding_kinds.hpp"
#include "rehearse/findings/judgements.hpp"
#include "support/code_signature.hpp"

namespace rehearse {
namespace {

using platform::Requirement;
using Clock = std::chrono::system_clock;

std::string dateText(Clock::time_point time) {
  const std::time_t seconds = Clock::to_time_t(time);
  std::tm parts{};
  std::array<char, 16> text{};
  if (::gmtime_r(&seconds, &parts) == nullptr)
    return "an unknown date";
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d", &parts)};
}

std::string signerText(const SignatureFacts& signature) {
  const auto& chain = signature.identity().chain;
  return chain.empty() ? std::string("It is signed without a certificate (ad hoc)")
                       : "It is signed by " + platform::quoted(chain.front().displayName());
}

void judgeCertificate(const SignatureFacts& signature, std::vector<Finding>& findings) {
  if (!signature.isDeveloperID()) {
    findings.push_back(finding("not-developer-id",
                               signerText(signature) + ", not with a Developer ID: the update is refused."));
    return;
  }
  const Clock::time_point expiry = signature.identity().chain.front().expiry();
  if (!signature.stamped)
    findings.push_back(finding(
        "no-time-stamp",
        "The signature has no secure time stamp: macOS does not notarize the application, and no longer "
        "trusts any copy of it once the certificate has expired, on " +
            dateText(expiry) + ", or is revoked."));
  if (expiry < signature.stamped.value_or(Clock::now()))
    findings.push_back(finding("certificate-expired",
                               "The certificate expired on " + dateText(expiry) +
                                   ", and no time stamp shows that the application was signed before: macOS "
                                   "may refuse to open it."));
}

/// The requirement by which macOS recognises a new version as the same application. Throws `FormatError` for
/// one that cannot be judged here.
std::optional<Requirement> designatedRequirement(const SignatureFacts& signature) {
  if (!signature.designatedRequirement.empty())
    return Requirement::fromCompiled(signature.designatedRequirement);
  const auto text = QuorinSupport::CodeSignature::developerIDRequirement(signature.identity().identifier,
                                                                         signature.team().value_or(""));
  return text && signature.isDeveloperID() ? std::optional(Requirement::parse(*text)) : std::nullopt;
}

void judgeRequirement(const SignatureFacts& installed, const BundleFacts& offered,
                      std::vector<Finding>& findings) {
  try {
    const std::optional<Requirement> requirement = designatedRequirement(installed);
    if (!requirement)
      return;
    for (const platform::CodeIdentity& code : offered.signature->identities) {
      if (const auto clause = requirement->failingClause(code, &offered.information)) {
        findings.push_back(finding("requirement-changed",
                                   "The new version does not satisfy the designated requirement of the "
                                   "installed one (" +
                                       *clause +
                                       "): macOS takes it for another application, and asks users for "
                                       "its permissions and its keychain items again."));
        return;
      }
    }
  } catch (const platform::FormatError& error) {
    findings.push_back(
        finding("requirement-not-judged",
                platform::sentence(
                    "The designated requirement of the installed version cannot be judged here", error)));
  }
}

void judgeTicket(const BundleFacts& offered, std::vector<Finding>& findings) {
  // Old software has a link to the seal at the ticket's place.
  const BundleTree::Item* ticket = offered.tree.resolve("Contents/CodeResources").item;
  if (ticket == nullptr || ticket->kind != platform::ItemKind::file ||
      ticket->path != "Contents/CodeResources")
    findings.push_back(
        finding("no-notarization-ticket",
                "No notarization ticket is stapled to the application: macOS asks for it over the network at "
                "the first start, and users who are offline may be asked, or kept from opening it."));
}

}  // namespace

void judgeSignatures(const BundleFacts& installed, const BundleFacts& offered,
                     std::vector<Finding>& findings) {
  // Without an Info.plist there is no executable to look at, which is told already.
  if (!installed.signature && installed.hasInformation)
    findings.push_back(finding("installed-not-signed",
                               "The installed version is not signed, so that the update "
                               "is refused: " +
                                   installed.whyNotSigned));
  if (!offered.signature) {
    if (offered.hasInformation)
      findings.push_back(
          finding("not-signed",
                  "The new version is not signed, so that the update is refused: " + offered.whyNotSigned));
    if (offered.hasInformation && offered.executable == nullptr)
      findings.back().advice = "Name a program in Contents/MacOS as CFBundleExecutable, and sign again.";
    return;
  }
  judgeCertificate(*offered.signature, findings);
  judgeTicket(offered, findings);
  if (!offered.signature->hasHardenedRuntime)
    findings.push_back(finding("no-hardened-runtime",
                               "The executable is not signed with the hardened runtime: macOS does not "
                               "notarize the application, and "
                               "other programs can load code into it."));
  if (!installed.signature)
    return;
  const auto before = installed.signature->team();
  const auto after = offered.signature->team();
  const bool isOfOtherTeam = before && after && *before != *after;
  if (isOfOtherTeam)
    findings.push_back(finding("team-changed", "It is signed by the team " + platform::quoted(*after) +
                                                   ", the installed version by " + platform::quoted(*before) +
                                                   ": the update is refused."));
  // Another signer or identifier, which never satisfies the requirement, is told already.
  if (!isOfOtherTeam && offered.signature->isDeveloperID() &&
      installed.name.identifier == offered.name.identifier)
    judgeRequirement(*installed.signature, offered, findings);
}

}  // namespace rehearse
