#include "rehearse/stories/rehearse_release.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <type_traits>

#include "platform/files/file_manager.hpp"
#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/error.hpp"
#include "platform/processes/process.hpp"
#include "platform/security/certificate.hpp"
#include "rehearse/files/trees.hpp"
#include "rehearse/findings/findings.hpp"
#include "rehearse/stories/application_source.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

using QuorinOstrevalUpdater::InstallPlan;

constexpr std::uint64_t kMegabyte = 1'000'000;
/// For the prefix, certificates, plans and what a file system needs itself.
constexpr std::uint64_t kReserve = 100 * kMegabyte;

/// In the private place: the application, its image and every image made of it.
std::uint64_t neededFor(std::uint64_t image, std::uint64_t application) {
  constexpr std::uint64_t kImages = 3;         // the image, with a flipped byte, truncated
  constexpr std::uint64_t kApplications = 10;  // four made images and one in the making, a copy, two versions
                                               // at the target, a volume being attached
  return kImages * image + kApplications * application + kReserve;
}

void requireSpace(const fs::path& scratch, std::uint64_t needed) {
  const std::uint64_t available = fs::space(scratch).available;
  if (available < needed)
    throw platform::Error("The rehearsal needs about " + std::to_string(needed / kMegabyte) + " MB in " +
                          platform::quoted(scratch.parent_path().native()) + ", which has " +
                          std::to_string(available / kMegabyte) + " MB free; --scratch names another place.");
}

InstallPlan readPlan(const fs::path& path) {
  return platform::JSONDecoder().decode<InstallPlan>(
      platform::Data::contentsOf(platform::URL::fileURLWithPath(path.native())));
}

std::string presentDate() {
  const std::time_t now = std::time(nullptr);
  std::tm time{};
  std::array<char, 32> text{};
  if (::gmtime_r(&now, &time) == nullptr ||
      std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &time) == 0)
    throw platform::Error("The date is not known.");
  return text.data();
}

fs::path makeConfidential(const fs::path& directory) {
  platform::NSFileManager::defaultManager().createDirectoryAtURL(
      platform::URL::fileURLWithPath(directory.native()), platform::IntermediateDirectories::no,
      platform::DirectoryAccess::ownerOnly);
  return directory;
}

/// Something that was not tried, and the installed versions with which it was not.
struct Untried {
  std::string name;
  std::string reason;
  std::vector<std::string> versions;
};

std::vector<Untried> untriedIn(const std::vector<Pairing>& pairings) {
  std::vector<Untried> all;
  for (const Pairing& pairing : pairings) {
    const auto add = [&](const std::string& name, const std::string& reason) {
      const auto known = std::ranges::find_if(
          all, [&](const Untried& each) { return each.name == name && each.reason == reason; });
      Untried& untried = known == all.end() ? all.emplace_back(Untried{name, reason, {}}) : *known;
      untried.versions.push_back(versionOf(pairing.installed));
    };
    for (const Step& step : pairing.steps)
      if (step.verdict == StepVerdict::notTried)
        add(step.name, step.message);
    for (const Sweep& sweep : pairing.sweeps)
      if (isUntried(sweep))
        add(sweep.name, sweep.points.front().name);
    if (!pairing.wouldInstall)
      add("everything but the update itself", "it shows something only where the update succeeds.");
  }
  return all;
}

/// A sentence for all that was not tried for one reason, with the installed versions unless they are all.
std::vector<std::string> notTriedIn(const std::vector<Pairing>& pairings) {
  std::vector<Untried> merged;
  for (const Untried& untried : untriedIn(pairings)) {
    const auto known = std::ranges::find_if(merged, [&](const Untried& each) {
      return each.reason == untried.reason && each.versions == untried.versions;
    });
    if (known == merged.end())
      merged.push_back(untried);
    else
      known->name += ", " + untried.name;
  }
  std::vector<std::string> sentences;
  for (const auto& [names, reason, versions] : merged) {
    std::string text = names;
    if (versions.size() < pairings.size())
      for (const std::string& version : versions)
        text.append(text == names ? ", over " : ", ").append(version);
    sentences.push_back(text.append(": ").append(reason));
  }
  return sentences;
}

class Rehearser {
 public:
  Rehearser(const Request& request, const PrivatePlace& place, const fs::path& scratch)
      : request_(request),
        place_(place),
        scratch_(scratch),
        confidential_(makeConfidential(scratch / "confidential")),
        plan_(request.plan ? std::optional(reading("The plan", *request.plan,
                                                   [&] { return readPlan(place.reachable(*request.plan)); }))
                           : std::nullopt),
        imageSize_(roomForImage()),
        prefix_(scratch / "prefix", anchors(), place.reachable(platform::installationPrefix().path())) {}

  Rehearsal run() {
    const auto begin = std::chrono::steady_clock::now();
    Rehearsal rehearsal;
    rehearsal.date = presentDate();
    progress("reading the image");
    const OfferedRelease release = readRelease();
    rehearsal.subject = {.image = request_.image.native(),
                         .imageDigest = release.digest,
                         .updaterDigest = prefix_.digest(),
                         .options = request_.options};
    rehearsal.shards = {request_.shard};
    if (release.application)
      rehearsal.offered = release.application->name;
    ChangedImages images(prefix_, release, confidential_ / "images");
    const Offering offering{.prefix = prefix_,
                            .release = release,
                            .images = images,
                            .system = request_.system,
                            .plan = plan_,
                            .progress = request_.progress};
    for (const fs::path& installed : request_.installed)
      rehearsal.pairings.push_back(rehearseOne(offering, installed, rehearsal.plan));
    rehearsal.judgedNotRun = {"The start of the application on macOS " + versionText(request_.system) +
                                  ": judged by its executable, its libraries and its file names.",
                              "The tools of macOS: the programs in libexec/quorin do their work here."};
    rehearsal.notTried = notTriedIn(rehearsal.pairings);
    rehearsal.duration = std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - begin);
    return rehearsal;
  }

 private:
  /// Runs a part of the reading; its failure names the item as it was given, and nothing in the scratch
  /// directory.
  template <typename Part>
  std::invoke_result_t<Part> reading(const std::string& what, const fs::path& item, Part&& part) const {
    const std::string subject = what + " " + platform::quoted(item.native()) + " cannot be read";
    try {
      return part();
    } catch (const platform::Error& failure) {
      std::string reason = platform::sentence(subject, failure).substr(subject.size());
      reason = replaceAll(std::move(reason), platform::quoted(place_.reachable(item).native()), "it");
      for (const fs::path& directory : {confidential_ / "release/application", confidential_ / "installed"})
        reason = withoutDirectory(std::move(reason), directory);
      throw platform::Error(subject + reason);
    } catch (const fs::filesystem_error& failure) {
      throw platform::Error(platform::sentence(subject, failure.code().message()));
    }
  }

  /// The image's size, for which there is room. An application is rarely smaller than its image; its own size
  /// is known once the image is read.
  std::uint64_t roomForImage() const {
    const std::uint64_t size =
        reading("The image", request_.image, [&] { return fs::file_size(place_.reachable(request_.image)); });
    requireSpace(scratch_, neededFor(size, size));
    return size;
  }

  /// The given files, which contain nothing but roots: with others, every signature would be refused.
  std::vector<fs::path> anchors() const {
    std::vector<fs::path> result;
    result.reserve(request_.anchors.size());
    for (const fs::path& path : request_.anchors)
      reading("The file of trusted roots", path, [&] {
        result.push_back(place_.reachable(path));
        const auto roots = platform::Certificate::fromPEM(readFile(result.back()));
        if (!std::ranges::all_of(roots, &platform::Certificate::isRoot))
          throw platform::Error("One of its certificates is not a self-signed root.");
      });
    return result;
  }

  void progress(const std::string& text) const {
    if (request_.progress)
      request_.progress(text);
  }

  /// Of several applications in the image, the plan's or the first installed one's is meant.
  OfferedRelease readRelease() {
    std::string identifier;
    if (plan_)
      identifier = plan_->expectedBundleIdentifier;
    else if (fs::is_directory(place_.reachable(request_.installed.front())))
      platform::bestEffort(
          [&] { identifier = identityOf(place_.reachable(request_.installed.front()), {}).name.identifier; });
    OfferedRelease release = reading("The image", request_.image, [&] {
      return rehearse::readRelease(prefix_, place_.reachable(request_.image), request_.image.native(),
                                   identifier, confidential_ / "release");
    });
    if (release.application)
      requireSpace(scratch_, neededFor(imageSize_, release.application->size));
    return release;
  }

  /// Room for the update of an installed application of that size.
  void requireSpaceFor(const OfferedRelease& release, std::uint64_t installed) const {
    const std::uint64_t offered = release.application ? release.application->size : 0;
    requireSpace(scratch_, neededFor(imageSize_, std::max(offered, installed)));
  }

  Pairing rehearseOne(const Offering& offering, const fs::path& source, std::string& plan) {
    const fs::path directory = confidential_ / "installed";
    const platform::ScopeExit removal([&] { removeItem(directory); });
    progress("reading " + source.filename().native());
    requireSpaceFor(offering.release, reading("The installed application", source,
                                              [&] { return sizeOfTree(place_.reachable(source)); }));
    const Application installed = reading("The installed application", source, [&] {
      const auto bundle =
          bringApplication(prefix_, place_.reachable(source), directory,
                           offering.release.application ? offering.release.application->name.identifier : "");
      if (!bundle)
        throw platform::Error("The image contains no application.");
      return readApplication(prefix_, *bundle, source.native());
    });
    requireSpaceFor(offering.release, installed.size);
    if (plan.empty())
      plan = textOf(plan_ ? *plan_ : planFor(offering.release, installed));
    Pairing pairing = rehearsePairing(offering, installed, place_.home() / "user");
    if (pairing.wouldInstall && request_.prove)
      pairing.sweeps = request_.prove(prefix_, offering.release, installed, scratch_ / "proof");
    return pairing;
  }

  const Request& request_;
  const PrivatePlace& place_;
  const fs::path& scratch_;
  fs::path confidential_;  ///< for what is not published yet
  std::optional<InstallPlan> plan_;
  std::uint64_t imageSize_;
  PrivatePrefix prefix_;
};

}  // namespace

Rehearsal rehearseRelease(const Request& request, const PrivatePlace& place, const fs::path& scratch) {
  return Rehearser(request, place, scratch).run();
}

}  // namespace rehearse
