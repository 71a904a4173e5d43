#include <array>
#include <compare>

#include "platform/foundation/error.hpp"
#include "rehearse/findings/dotted_version.hpp"
#include "rehearse/findings/finding_kinds.hpp"
#include "rehearse/findings/judgements.hpp"

namespace rehearse {
namespace {

void judgeNumbers(const ApplicationName& installed, const ApplicationName& offered,
                  std::vector<Finding>& findings) {
  const auto build = compareVersions(offered.build, installed.build);
  const auto version = compareVersions(offered.version, installed.version);
  const std::string both =
      "The new version is " + versionOf(offered) + ", the installed one " + versionOf(installed);
  if (std::is_lt(build) || (std::is_eq(build) && std::is_lt(version))) {
    findings.push_back(finding("downgrade", both + ": users would get an older version."));
    return;
  }
  if (std::is_eq(build))
    findings.push_back(
        finding("build-does-not-rise", both + ": the build is the same, so that what compares builds takes "
                                              "the update for installed, or offers it again and again."));
  if (std::is_lt(version))
    findings.push_back(
        finding("version-falls", both + ": users would see a lower version although the build is higher."));
  if (std::is_eq(version) && std::is_gt(build))
    findings.push_back(finding("version-does-not-rise", both + ": users cannot tell the two apart."));
}

void judgeArchitectures(const BundleFacts& installed, const BundleFacts& offered,
                        std::vector<Finding>& findings) {
  struct Kind {
    const char* architecture;
    const char* consequence;
  };
  constexpr std::array<Kind, 2> kKinds{
      {{"x86_64", "it does not start on Macs with Intel processors, where the installed version comes back"},
       {"arm64", "Macs with an arm64 processor have to translate it, and ask the user for that if need be"}}};
  if (!offered.architectures)
    return;
  for (const auto& [architecture, consequence] : kKinds) {
    const bool had = !installed.architectures || installed.architectures->contains(architecture);
    if (had && !offered.architectures->contains(architecture))
      findings.push_back(finding("architecture-lost", std::string("The new version has no code for ") +
                                                          architecture + ": " + consequence + "."));
  }
}

void judgeLeastSystem(const BundleFacts& installed, const BundleFacts& offered,
                      std::vector<Finding>& findings) {
  if (!offered.leastSystem || *offered.leastSystem <= installed.leastSystem.value_or(SystemVersion()))
    return;
  const std::string before =
      installed.leastSystem ? "macOS " + versionText(*installed.leastSystem) : std::string("no system");
  findings.push_back(
      finding("minimum-system-raised", "The new version requires macOS " + versionText(*offered.leastSystem) +
                                           ", the installed one " + before +
                                           ": on earlier systems it does not start, and the "
                                           "installed version comes back after each attempt."));
}

}  // namespace

void judgeIdentities(const BundleFacts& installed, const BundleFacts& offered,
                     std::vector<Finding>& findings) {
  if (!installed.whyNotIdentified.empty())
    findings.push_back(
        finding("installed-not-identified",
                "The installed version " + installed.whyNotIdentified + ": the update is refused."));
  if (!offered.whyNotIdentified.empty())
    findings.push_back(
        finding("not-identified", "The new version " + offered.whyNotIdentified +
                                      ": the updater finds no application in the image, and the update is "
                                      "refused."));
}

void judgeVersions(const BundleFacts& installed, const BundleFacts& offered, std::vector<Finding>& findings) {
  const bool areIdentified = installed.whyNotIdentified.empty() && offered.whyNotIdentified.empty();
  if (areIdentified && offered.name.identifier != installed.name.identifier)
    findings.push_back(finding("identifier-changed",
                               "The identifier is " + platform::quoted(offered.name.identifier) +
                                   ", that of the installed version " +
                                   platform::quoted(installed.name.identifier) + ": the update is refused."));
  if (offered.name.bundleName != installed.name.bundleName)
    findings.push_back(finding(
        "bundle-renamed", "The new application is called " + platform::quoted(offered.name.bundleName) +
                              "; users keep the name " + platform::quoted(installed.name.bundleName) + "."));
  if (areIdentified)
    judgeNumbers(installed.name, offered.name, findings);
  if (!installed.hasInformation)
    return;
  judgeArchitectures(installed, offered, findings);
  judgeLeastSystem(installed, offered, findings);
}

}  // namespace rehearse
