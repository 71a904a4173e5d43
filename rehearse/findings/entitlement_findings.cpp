#include <algorithm>
#include <array>

#include "rehearse/findings/finding_kinds.hpp"
#include "rehearse/findings/judgements.hpp"

namespace rehearse {
namespace {

using Entitlements = std::map<std::string, std::string>;

constexpr const char* kDebuggable = "com.apple.security.get-task-allow";

/// Entitlements that a provisioning profile has to allow.
bool needsProfile(const std::string& key) {
  constexpr std::array<std::string_view, 3> kKeys{"com.apple.application-identifier",
                                                  "application-identifier", "keychain-access-groups"};
  return key.starts_with("com.apple.developer.") || std::ranges::find(kKeys, key) != kKeys.end();
}

std::string joined(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts)
    all += (all.empty() ? "" : "; ") + text;
  return all;
}

std::string inParentheses(const std::string& value) {
  return " (" + value + ")";
}

void judgeChanges(const Entitlements& installed, const Entitlements& offered,
                  std::vector<Finding>& findings) {
  std::vector<std::string> lost;
  std::vector<std::string> added;
  for (const auto& [key, value] : installed) {
    const auto found = offered.find(key);
    if (found == offered.end())
      lost.emplace_back(key).append(inParentheses(value)).append(" is gone");
    else if (found->second != value)
      lost.emplace_back(key).append(" is ").append(found->second).append(" instead of ").append(value);
  }
  for (const auto& [key, value] : offered) {
    if (!installed.contains(key))
      added.emplace_back(key).append(inParentheses(value));
  }
  if (!lost.empty())
    findings.push_back(finding(
        "entitlements-lost", "The entitlements differ from those of the installed version: " + joined(lost) +
                                 ". Users may lose what depends on them, such as access to their data."));
  if (!added.empty())
    findings.push_back(
        finding("entitlements-added",
                "Entitlements that the installed version does not have: " + joined(added) + "."));
}

}  // namespace

void judgeEntitlements(const BundleFacts& installed, const BundleFacts& offered,
                       std::vector<Finding>& findings) {
  if (!offered.signature)
    return;
  const Entitlements& entitlements = offered.signature->entitlements;
  if (const auto found = entitlements.find(kDebuggable);
      found != entitlements.end() && found->second == "true")
    findings.push_back(
        finding("debuggable",
                "The entitlement com.apple.security.get-task-allow lets every program of the user "
                "read and change the running application, and macOS does not notarize it."));
  if (offered.tree.resolve("Contents/embedded.provisionprofile").item == nullptr) {
    std::vector<std::string> restricted;
    for (const auto& [key, value] : entitlements) {
      if (needsProfile(key))
        restricted.push_back(key);
    }
    if (!restricted.empty())
      findings.push_back(finding("entitlement-needs-profile",
                                 "No provisioning profile is embedded, and one must allow " +
                                     joined(restricted) + ": macOS may end the application as it starts."));
  }
  if (offered.signature->hasOtherEntitlements ||
      (installed.signature && installed.signature->hasOtherEntitlements))
    findings.push_back(finding("entitlements-not-judged",
                               "The entitlements are signed in binary form only, which is not read here."));
  else if (installed.signature)
    judgeChanges(installed.signature->entitlements, entitlements, findings);
}

}  // namespace rehearse
