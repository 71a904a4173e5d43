#include "rehearse/stories/explanation.hpp"

#include <algorithm>
#include <array>
#include <string_view>

#include "platform/foundation/error.hpp"
#include "platform/foundation/text.hpp"
#include "rehearse/findings/finding_kinds.hpp"
#include "rehearse/findings/findings.hpp"
#include "rehearse/stories/refusing_place.hpp"

namespace rehearse {
namespace {

/// Findings because of which the updater refuses an application before it installs it.
constexpr std::array<std::string_view, 13> kReasonsToRefuse{"plan-differs",
                                                            "no-application",
                                                            "not-identified",
                                                            "installed-not-identified",
                                                            "not-signed",
                                                            "installed-not-signed",
                                                            "changed-after-signing",
                                                            "signature-invalid",
                                                            "not-developer-id",
                                                            "installed-signature-invalid",
                                                            "identifier-changed",
                                                            "team-changed",
                                                            "signature-in-attributes"};

bool contains(const std::vector<Finding>& findings, std::string_view key) {
  return std::ranges::find(findings, key, &Finding::key) != findings.end();
}

bool containsAny(const std::vector<Finding>& findings, const auto& keys) {
  return std::ranges::any_of(keys, [&](std::string_view key) { return contains(findings, key); });
}

std::vector<Difference> differencesOfPlan(const Offering& offering) {
  return offering.plan ? differences(*offering.plan, offering.release) : std::vector<Difference>();
}

/// What to say of an obstacle to the start.
struct Remedy {
  ObstacleKind kind;
  std::string_view advice;
  std::string_view betterKey = {};  ///< of a finding that tells the same more precisely
  std::string_view weakerKey = {};  ///< of a warning that the obstacle makes a fault
};

constexpr std::array<Remedy, 8> kRemedies{{
    {ObstacleKind::names, "Rename one of the two and sign again.", "names-collide"},
    {ObstacleKind::information, "Give the application an Info.plist, and sign again.", "not-identified"},
    {ObstacleKind::executable, "Name a program in Contents/MacOS as CFBundleExecutable, and sign again.",
     "not-signed"},
    {ObstacleKind::permission, "Make the executable one for everyone (chmod a+x) before the image is made."},
    {ObstacleKind::interpreter,
     "Use an interpreter that every Mac has, or a Mach-O program, and sign again."},
    {.kind = ObstacleKind::build,
     .advice = "Build the executable as a program for macOS with code for arm64 and x86_64.",
     .weakerKey = "architecture-lost"},
    {.kind = ObstacleKind::system,
     .advice = "Offer this release only to users with that system or later, and rehearse it with --macos set "
               "to that; or build it for earlier ones.",
     .weakerKey = "minimum-system-raised"},
    {ObstacleKind::library,
     "Put the library into Contents/Frameworks, to which an LC_RPATH of the executable must lead, and sign "
     "again."},
}};

void addObstacles(const Offering& offering, std::vector<Finding>& findings) {
  for (const auto& [kind, sentence] :
       obstaclesToStart(offering.release.application->bundle, offering.system)) {
    const Remedy& remedy = *std::ranges::find(kRemedies, kind, &Remedy::kind);
    if (contains(findings, remedy.betterKey))
      continue;
    std::erase_if(findings, [&](const Finding& each) { return each.key == remedy.weakerKey; });
    findings.push_back(finding("cannot-start", sentence + " Users keep the previous version."));
    findings.back().advice = remedy.advice;
  }
}

void addSignatures(const Offering& offering, const Application& installed, std::vector<Finding>& findings) {
  constexpr std::array<std::string_view, 3> kSaidBetter{"not-signed", "not-developer-id",
                                                        "signature-in-attributes"};
  const auto& offered = offering.release.application;
  if (offered && !offered->signatureFailure.empty() && !containsAny(findings, kSaidBetter))
    findings.push_back(
        finding(offered->isChanged ? "changed-after-signing" : "signature-invalid",
                "The signature of the new version is not valid, so that the update is refused: " +
                    offered->signatureFailure));
  if (!installed.signatureFailure.empty() && !contains(findings, "installed-not-signed"))
    findings.push_back(
        finding("installed-signature-invalid",
                "The signature of the installed version is not valid, so that the update is refused: " +
                    installed.signatureFailure));
}

void addPlan(const Offering& offering, std::vector<Finding>& findings) {
  std::string sentences;
  for (const Difference& difference : differencesOfPlan(offering))
    sentences += difference.sentence + " ";
  if (!sentences.empty())
    findings.push_back(finding("plan-differs", sentences + "The update is refused."));
}

/// Whether one of the findings is why the update was refused there.
bool isExplained(const std::string& place, const std::vector<Finding>& findings) {
  if (place == kByDigest)
    return contains(findings, "plan-differs");
  if (place == kByInstalled || place == kByImage)
    return containsAny(findings, kReasonsToRefuse);
  return place == kByStart && (contains(findings, "cannot-start") || contains(findings, "names-collide"));
}

}  // namespace

std::string headlineOf(const Offering& offering, const Application& installed, const UpdateRun& run,
                       const std::string& place) {
  const auto& offered = offering.release.application;
  if (const std::vector<Difference> all = differencesOfPlan(offering); !all.empty()) {
    std::string what;
    for (const Difference& difference : all)
      what += (what.empty() ? "" : ", ") + difference.what;
    return "The plan and the image differ: " + what + ".";
  }
  if (!offered)
    return "The image contains no application.";
  if (!offered->whyNotIdentified.empty())
    return "The application in the image " + offered->whyNotIdentified + ".";
  if (!installed.whyNotIdentified.empty())
    return "The installed application " + installed.whyNotIdentified + ".";
  if (!platform::canonicallyEquivalent(offered->name.identifier, installed.name.identifier))
    return "The image contains " + platform::quoted(offered->name.identifier) + ", installed is " +
           platform::quoted(installed.name.identifier) + ".";
  if (offered->team.empty())
    return "The application in the image has no valid Developer ID signature.";
  if (installed.team.empty())
    return "The installed application has no valid Developer ID signature.";
  if (offered->team != installed.team)
    return "The image contains an application of the team " + platform::quoted(offered->team) +
           ", installed is one of " + platform::quoted(installed.team) + ".";
  if (place == kByStart)
    return "The new version cannot start.";
  return place.empty() ? run.sentence : "It fails at: " + place + ".";
}

std::vector<Finding> findingsOf(const Offering& offering, const Application& installed, const UpdateRun& run,
                                const std::string& place, const std::string& complaint) {
  std::vector<Finding> findings;
  if (const auto& offered = offering.release.application) {
    findings = compare(installed.bundle, offered->bundle);
    addObstacles(offering, findings);
  } else {
    findings.push_back(
        finding("no-application", "The image contains no application, so that the update is refused."));
  }
  addSignatures(offering, installed, findings);
  addPlan(offering, findings);
  for (Finding& each : findings) {
    each.sentence = withoutDirectory(each.sentence, installed.bundle.parent_path());
    if (const auto& offered = offering.release.application)
      each.sentence = withoutDirectory(each.sentence, offered->bundle.parent_path());
  }
  if (!complaint.empty() || (run.exitStatus != 0 && !isExplained(place, findings)))
    findings.push_back(finding("update-failed", complaint.empty() ? run.sentence : complaint));
  else
    for (const std::string& name : run.leftOver)
      findings.push_back(finding("left-over", "The update leaves " + name + "."));
  sortWorstFirst(findings);
  return findings;
}

}  // namespace rehearse
