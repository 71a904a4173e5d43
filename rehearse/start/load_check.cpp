#include "rehearse/start/load_check.hpp"

#include <algorithm>
#include <array>
#include <filesystem>

#include "platform/foundation/error.hpp"
#include "platform/security/code_file.hpp"
#include "platform/security/mach_o.hpp"
#include "platform/security/mach_o_format.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

using platform::ItemKind;
using platform::MachOLibrary;
using platform::MachOLinkage;
using platform::MachOTarget;

namespace build_platform = platform::mach_o::build_platform;

/// Real applications need a few thousand.
constexpr std::size_t kMostTries = 1'000'000;

constexpr std::string_view kExecutablePath = "@executable_path";
constexpr std::string_view kLoaderPath = "@loader_path";
constexpr std::string_view kRunPath = "@rpath/";
constexpr std::string_view kSwift = "/usr/lib/swift/";

/// The rest of a name that begins with a directory's placeholder, from its slash on.
std::optional<std::string> restAfter(std::string_view placeholder, const std::string& name) {
  if (!name.starts_with(placeholder))
    return std::nullopt;
  const std::string rest = name.substr(placeholder.size());
  return rest.empty() || rest.front() == '/' ? std::optional(rest) : std::nullopt;
}

std::string directoryOf(const std::string& path) {
  return fs::path(path).parent_path().native();
}

std::string normal(const std::string& path) {
  return fs::path(path).lexically_normal().native();
}

/// A library for two systems counts for both, old code without a target for any.
bool isForMac(const std::vector<MachOTarget>& targets) {
  return targets.empty() || std::ranges::any_of(targets, [](const MachOTarget& target) {
           return target.platform == build_platform::kMacOS || target.platform == build_platform::kCatalyst;
         });
}

}  // namespace

bool isSystemLibrary(const std::string& path) {
  constexpr std::array<std::string_view, 3> kPlaces{"/usr/lib/", "/System/", "/Library/Apple/"};
  // The volume of the user's data appears here too.
  constexpr std::string_view kOtherVolumes = "/System/Volumes/";
  const std::string plain = normal(path);
  if (plain.starts_with(kSwift)) {
    // Applications look here for all their libraries; the system has only those of the language. Those for
    // compatibility with older systems come with the application.
    const std::string_view name = std::string_view(plain).substr(kSwift.size());
    return name.starts_with("libswift") && !name.starts_with("libswiftCompatibility");
  }
  return !plain.starts_with(kOtherVolumes) &&
         std::ranges::any_of(kPlaces, [&](std::string_view place) { return plain.starts_with(place); });
}

std::vector<MissingLibrary> LoadCheck::missingLibraries(const std::string& executable, MachOLinkage linkage) {
  images_.push_back({.path = executable, .loader = 0, .linkage = std::move(linkage)});
  for (std::size_t image = 0; image < images_.size(); ++image)
    loadLibraries(image);
  // A library that is already loaded is found by its own name, wherever it is.
  std::erase_if(missing_, [this](const MissingLibrary& missing) { return isLoadedAs(missing.name); });
  return std::move(missing_);
}

std::vector<std::string> LoadCheck::loadedLibraries() const {
  std::vector<std::string> paths;
  for (std::size_t image = 1; image < images_.size(); ++image)
    paths.push_back(images_[image].path);
  return paths;
}

void LoadCheck::loadLibraries(std::size_t image) {
  // A copy: loading adds images.
  const std::vector<MachOLibrary> libraries = images_[image].linkage.libraries;
  for (const MachOLibrary& library : libraries) {
    const std::optional<std::string> reason = reasonNotToLoad(library.name, image);
    const bool isKnown = std::ranges::find(missing_, library.name, &MissingLibrary::name) != missing_.end();
    if (reason && !library.isWeak && !isKnown)
      missing_.push_back({.loader = images_[image].path, .name = library.name, .reason = *reason});
  }
}

LoadCheck::Candidate LoadCheck::candidate(const std::string& name, const Image& image) const {
  using enum Candidate::Where;
  const std::string applications = "/Applications/" + tree_.root().filename().native() + "/";
  if (const auto rest = restAfter(kExecutablePath, name))
    return {bundle, directoryOf(images_.front().path) + *rest};
  if (const auto rest = restAfter(kLoaderPath, name))
    return {bundle, directoryOf(image.path) + *rest};
  if (isSystemLibrary(name))
    return {system, name};
  // Where most users have it.
  if (name.starts_with(applications))
    return {bundle, name.substr(applications.size())};
  return {elsewhere, name};
}

/// In the loader's order: its own run paths, then those of the image that loaded it, up to the executable's.
std::vector<LoadCheck::Candidate> LoadCheck::candidates(const std::string& name, std::size_t image) const {
  if (!name.starts_with(kRunPath))
    return {candidate(name, images_[image])};
  const std::string rest = name.substr(kRunPath.size() - 1);
  std::vector<Candidate> all;
  while (true) {
    for (const std::string& runPath : images_[image].linkage.runPaths) {
      Candidate next = candidate(runPath + rest, images_[image]);
      // Every application in the system's language looks there, mostly in vain.
      if (next.where != Candidate::Where::elsewhere || !next.path.starts_with(kSwift))
        all.push_back(std::move(next));
    }
    if (image == 0)
      return all;
    image = images_[image].loader;
  }
}

std::optional<std::string> LoadCheck::reasonNotToLoad(const std::string& name, std::size_t image) {
  const std::vector<Candidate> places = candidates(name, image);
  if (places.empty())
    return "no LC_RPATH leads to it in the application";
  std::string reasons;
  for (const Candidate& place : places) {
    const std::optional<std::string> reason = reasonNotToLoad(place, image);
    if (!reason)
      return std::nullopt;
    if (reasons.find(*reason) == std::string::npos)
      reasons += (reasons.empty() ? "" : ", ") + *reason;
  }
  return reasons;
}

std::optional<std::string> LoadCheck::reasonNotToLoad(const Candidate& candidate, std::size_t loader) {
  if (++tries_ > kMostTries)
    throw platform::Error(platform::quoted(tree_.root().native()) +
                          " needs more libraries than any real application.");
  if (candidate.where == Candidate::Where::system)
    return std::nullopt;
  const std::string name = platform::quoted(normal(candidate.path));
  if (candidate.where == Candidate::Where::elsewhere)
    return name + " is neither in the application nor part of the system";
  const BundleTree::Place place = tree_.resolve(candidate.path);
  if (place.leavesBundle)
    return name + " leads out of the application";
  if (place.item == nullptr)
    return name + " is missing";
  if (place.item->kind != ItemKind::file)
    return name + " is not a file";
  return reasonNotToLoadFile(place.item->path, loader);
}

std::optional<std::string> LoadCheck::reasonNotToLoadFile(const std::string& path, std::size_t loader) {
  if (std::ranges::find(images_, path, &Image::path) != images_.end())
    return std::nullopt;
  const platform::CodeFile file(
      platform::Entry::at(platform::URL::fileURLWithPath((tree_.root() / path).native())));
  try {
    const auto slices = platform::readMachO(file);
    if (!slices)
      return platform::quoted(path) + " is not a library";
    const auto slice = std::ranges::find(*slices, architecture_, &platform::MachOSlice::architecture);
    if (slice == slices->end())
      return platform::quoted(path) + " has no code for " + architecture_;
    MachOLinkage linkage = platform::readMachOLinkage(file, slice->range);
    if (linkage.fileType != platform::mach_o::file_type::kDynamicLibrary)
      return platform::quoted(path) + " is not a library";
    if (!isForMac(linkage.targets))
      return platform::quoted(path) + " is built for another system than macOS";
    images_.push_back({.path = path, .loader = loader, .linkage = std::move(linkage)});
    return std::nullopt;
  } catch (const platform::FormatError& error) {
    return platform::quoted(path) + " is not valid (" + error.reason() + ")";
  }
}

bool LoadCheck::isLoadedAs(const std::string& installName) const {
  return std::ranges::any_of(images_,
                             [&](const Image& image) { return image.linkage.installName == installName; });
}

}  // namespace rehearse
