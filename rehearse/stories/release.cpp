#include "rehearse/stories/release.hpp"

#include "platform/foundation/error.hpp"
#include "platform/foundation/text.hpp"
#include "platform/security/requirement.hpp"
#include "platform/security/security_error.hpp"
#include "platform/security/static_code.hpp"
#include "rehearse/findings/findings.hpp"
#include "rehearse/stories/application_source.hpp"
#include "support/code_signature.hpp"
#include "updater/diskimage/file_digest.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

using platform::URL;
using QuorinOstrevalUpdater::InstallPlan;

/// The team of a signature that satisfies what the updater requires. Throws `platform::Error`.
std::string verifiedTeam(const fs::path& bundle, const std::string& identifier, const fs::path& anchors) {
  platform::StaticCode code = platform::StaticCode::atLocation(URL::fileURLWithPath(bundle.native()));
  std::string team = code.signingInformation().teamIdentifier.value_or("");
  const auto requirement = QuorinSupport::CodeSignature::developerIDRequirement(identifier, team);
  if (!requirement)
    throw platform::Error(team.empty() ? "The signature names no team."
                                       : "The identifier or the team has characters that are not allowed.");
  const platform::Requirement compiled = platform::Requirement::parse(*requirement);
  code.checkValidity(&compiled, URL::fileURLWithPath(anchors.native()));
  return team;
}

}  // namespace

std::string replaceAll(std::string text, const std::string& what, std::string_view by) {
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size()))
    text.replace(at, what.size(), by);
  return text;
}

std::string withoutDirectory(std::string sentence, const fs::path& directory) {
  return replaceAll(std::move(sentence), directory.native() + "/", "");
}

Application readApplication(const PrivatePrefix& prefix, const fs::path& bundle, const std::string& source) {
  const Identity identity = identityOf(bundle, source);
  Application application{.bundle = bundle,
                          .name = identity.name,
                          .inventory = inventory(bundle),
                          .whyNotIdentified = identity.whyNotIdentified,
                          .team = {},
                          .signatureFailure = {},
                          .isChanged = false,
                          .size = sizeOfTree(bundle)};
  if (!application.whyNotIdentified.empty())
    return application;
  try {
    application.team = verifiedTeam(bundle, application.name.identifier, prefix.anchors());
  } catch (const platform::Error& failure) {
    application.signatureFailure = withoutDirectory(failure.localizedDescription(), bundle.parent_path());
    const auto* refusal = dynamic_cast<const platform::SecurityError*>(&failure);
    application.isChanged = refusal != nullptr && refusal->status() == platform::errSecCSBadResource;
  }
  return application;
}

OfferedRelease readRelease(const PrivatePrefix& prefix, const fs::path& image, const std::string& source,
                           const std::string& identifier, const fs::path& directory) {
  fs::create_directories(directory);
  OfferedRelease release{
      .image = directory / "offered.dmg", .source = source, .digest = {}, .application = {}};
  fs::copy_file(image, release.image);
  fs::permissions(release.image, fs::perms(0644));
  release.digest = QuorinOstrevalUpdater::sha256(URL::fileURLWithPath(release.image.native()));
  std::optional<fs::path> bundle;
  try {
    bundle = bringApplication(prefix, release.image, directory / "application", identifier);
  } catch (const platform::Error& failure) {
    throw platform::Error(replaceAll(failure.localizedDescription(), release.image.native(), image.native()));
  }
  if (bundle)
    release.application = readApplication(prefix, *bundle, source);
  return release;
}

InstallPlan planFor(const OfferedRelease& release, const Application& installed) {
  InstallPlan plan;
  plan.dmgPath = "/Users/Shared/" + fs::path(release.source).filename().native();
  plan.targetAppPath = "/Applications/" + installed.bundle.filename().native();
  plan.statusPath = "/Users/Shared/update-status.json";
  plan.expectedSHA256 = release.digest;
  plan.expectedBundleIdentifier = installed.name.identifier;
  plan.expectedTeamIdentifier = installed.team;
  if (release.application) {
    if (!release.application->name.identifier.empty())
      plan.expectedBundleIdentifier = release.application->name.identifier;
    if (!release.application->team.empty())
      plan.expectedTeamIdentifier = release.application->team;
    plan.expectedVersion = release.application->name.version;
    plan.expectedBuild = release.application->name.build;
  }
  return plan;
}

std::string textOf(const InstallPlan& plan) {
  const platform::Data json = platform::JSONEncoder().encode(plan);
  std::string text;
  bool isInString = false;
  bool isEscaped = false;
  for (const char character : json.bytes()) {
    if (!isInString && character == '}')
      text += '\n';
    text += character;
    if (!isInString && (character == '{' || character == ','))
      text += "\n  ";
    if (!isInString && character == ':')
      text += ' ';
    if (character == '"' && !isEscaped)
      isInString = !isInString;
    isEscaped = isInString && character == '\\' && !isEscaped;
  }
  return text + "\n";
}

std::vector<Difference> differences(const InstallPlan& plan, const OfferedRelease& release) {
  std::vector<Difference> all;
  const auto compare = [&](const std::string& what, const std::string& expected, const std::string& actual,
                           const std::string& holder) {
    if (!platform::canonicallyEquivalent(expected, actual))
      all.push_back({what, "The plan expects the " + what + " " + platform::quoted(expected) + ", " + holder +
                               " has " + platform::quoted(actual) + "."});
  };
  compare("digest", platform::lowercased(plan.expectedSHA256), release.digest, "the image");
  if (!release.application)
    return all;
  const Application& application = *release.application;
  if (!application.whyNotIdentified.empty())
    return all;
  const std::string holder = "the application in the image";
  compare("identifier", plan.expectedBundleIdentifier, application.name.identifier, holder);
  compare("version", plan.expectedVersion, application.name.version, holder);
  compare("build", plan.expectedBuild, application.name.build, holder);
  if (!application.team.empty())
    compare("team", plan.expectedTeamIdentifier, application.team, holder);
  return all;
}

}  // namespace rehearse
