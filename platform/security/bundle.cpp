#include "platform/security/bundle.hpp"

#include <algorithm>
#include <array>
#include <span>

#include "platform/security/at_place.hpp"
#include "platform/security/resource_seal.hpp"
#include "platform/security/security_error.hpp"

namespace platform {
namespace {

constexpr std::uint64_t kLargestInformation = 1U << 20U;

constexpr const char* kContents = "Contents";
constexpr const char* kCode = "MacOS";
constexpr const char* kVersions = "Versions";
constexpr const char* kCurrent = "Current";
constexpr const char* kResources = "Resources";
constexpr const char* kInformation = "Info.plist";
constexpr const char* kViewSettings = ".DS_Store";

/// Beside `Contents`. The third is an icon that a user gave the application.
constexpr std::array<std::string_view, 4> kUnsealedFiles{kViewSettings, ".LSOverride", "Icon\r",
                                                         ".SoftwareDepot.tracking"};
constexpr std::array<std::string_view, 2> kUnsealedFrameworkFiles{kViewSettings, "module.map"};
constexpr std::array<std::string_view, 1> kUnsealedVersionFiles{kViewSettings};

/// Real frameworks have one to three.
constexpr std::size_t kMostVersions = 32;

[[noreturn]] void refuseUnsealed(const Directory& directory, const std::string& name) {
  throw Error(platform::quoted(directory.pathOf(name)) + " is not covered by the signature.");
}

/// No seal covers these files, so they must not be executable.
bool mayBeUnsealed(const ListedItem& entry, std::span<const std::string_view> names) {
  return entry.kind == ItemKind::file && !entry.isExecutable &&
         std::find(names.begin(), names.end(), entry.name) != names.end();
}

bool hasDirectory(const Directory& directory, const std::string& name) {
  return directory.kindOf(name) == ItemKind::directory;
}

/// Nothing for a bundle that contains only resources.
std::optional<std::string> executableName(const PropertyList& information) {
  const PropertyList* value = information.valueForKey("CFBundleExecutable");
  if (value == nullptr)
    return std::nullopt;
  const std::string* name = value->string();
  if (name == nullptr || name->empty() || *name == "." || *name == ".." ||
      name->find_first_of(std::string_view("/\0", 2)) != std::string::npos)
    throw FormatError("its Info.plist gives the main executable an invalid name");
  return *name;
}

std::vector<std::string> components(std::string_view path) {
  std::vector<std::string> parts;
  std::size_t begin = 0;
  while (begin <= path.size()) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    if (end > begin)
      parts.emplace_back(path.substr(begin, end - begin));
    begin = end + 1;
  }
  return parts;
}

/// The name of the item on disk, whose Unicode normalization may differ from that of `name`.
std::string nameOnDisk(const Directory& directory, const std::string& name) {
  if (directory.kindOf(name))
    return name;
  for (const ListedItem& entry : directory.entries()) {
    if (sealKey(entry.name) == sealKey(name))
      return entry.name;
  }
  return name;
}

/// Reads the bundle in `content`, whose main executable is in the directory `codePath` there.
Bundle readBundle(const Directory& root, const Directory& content, const std::string& codePath) {
  const bool inResources = codePath.empty() && hasDirectory(content, kResources);
  const Directory information = inResources ? content.subdirectory(kResources) : content;
  if (!information.kindOf(kInformation))
    throw Error(platform::quoted(information.pathOf(kInformation)) + " is missing.");
  std::string bytes = CodeFile(information.entry(kInformation)).content(kLargestInformation);
  PropertyList list = readingPropertyList(information.pathOf(kInformation), [&] {
    return NSPropertyListSerialization::propertyListWithData(Data(bytes));
  });
  const auto pathIn = [](const std::string& directory, const std::string& name) {
    return directory.empty() ? name : directory + "/" + name;
  };
  std::string executablePath = pathIn(inResources ? kResources : "", kInformation);
  if (const std::optional<std::string> name = executableName(list))
    executablePath =
        pathIn(codePath, nameOnDisk(codePath.empty() ? content : content.subdirectory(codePath), *name));
  return {.root = root,
          .content = content,
          .executablePath = std::move(executablePath),
          .informationBytes = std::move(bytes),
          .information = std::move(list)};
}

/// The components of a link's target; empty for an absolute target and for one with "..".
std::vector<std::string> downwardTarget(const Directory& directory, const std::string& link) {
  const std::string target = directory.linkTarget(link);
  std::vector<std::string> parts = components(target);
  std::erase(parts, ".");
  if (target.starts_with('/') || std::find(parts.begin(), parts.end(), "..") != parts.end())
    return {};
  return parts;
}

/// The version's directory that `name` is or links to; nothing when there is none.
std::optional<std::string> versionNamed(const Directory& versions, std::string name) {
  constexpr unsigned kMostLinks = 8;
  for (unsigned links = 0; links <= kMostLinks; ++links) {
    const std::optional<ItemKind> kind = versions.kindOf(name);
    if (kind == ItemKind::directory)
      return name;
    if (kind != ItemKind::link)
      return std::nullopt;
    std::vector<std::string> target = downwardTarget(versions, name);
    if (target.size() != 1)
      return std::nullopt;
    name = std::move(target.front());
  }
  return std::nullopt;
}

std::vector<Bundle> openVersions(const Directory& root) {
  const Directory versions = root.subdirectory(kVersions);
  const auto leadsToItem = [&](const ListedItem& entry) {
    if (entry.kind != ItemKind::link)
      return false;
    const std::vector<std::string> target = downwardTarget(root, entry.name);
    return target.size() == 3 && target[0] == kVersions && versionNamed(versions, target[1]) &&
           target[2] == entry.name;
  };
  for (const ListedItem& entry : root.entries()) {
    if (entry.name != kVersions && !leadsToItem(entry) && !mayBeUnsealed(entry, kUnsealedFrameworkFiles))
      refuseUnsealed(root, entry.name);
  }
  const std::optional<std::string> current = versionNamed(versions, kCurrent);
  if (!current || current == kCurrent)
    throw Error(platform::quoted(root.path()) + " has no current version.");
  std::vector<Bundle> bundles;
  for (const ListedItem& entry : versions.entries()) {
    if (mayBeUnsealed(entry, kUnsealedVersionFiles) ||
        (entry.kind == ItemKind::link && versionNamed(versions, entry.name)))
      continue;
    if (entry.kind != ItemKind::directory)
      refuseUnsealed(versions, entry.name);
    if (bundles.size() == kMostVersions)
      throw Error(platform::quoted(root.path()) + " has too many versions.");
    Bundle bundle = readBundle(root, versions.subdirectory(entry.name), {});
    bundles.insert(entry.name == current ? bundles.begin() : bundles.end(), std::move(bundle));
  }
  return bundles;
}

}  // namespace

CodeFile Bundle::openExecutable() const {
  const std::size_t slash = executablePath.find('/');
  if (slash == std::string::npos)
    return CodeFile(content.entry(executablePath));
  return CodeFile(
      content.subdirectory(executablePath.substr(0, slash)).entry(executablePath.substr(slash + 1)));
}

bool hasBundleShape(const Directory& directory) {
  return directory.kindOf(kContents) || directory.kindOf(kVersions) || directory.kindOf(kResources) ||
         directory.kindOf(kInformation);
}

std::vector<Bundle> openBundles(const Directory& root) {
  if (root.kindOf(kVersions))
    return openVersions(root);
  if (!root.kindOf(kContents))
    return {readBundle(root, root, {})};
  for (const ListedItem& entry : root.entries()) {
    if (entry.name != kContents && !mayBeUnsealed(entry, kUnsealedFiles))
      refuseUnsealed(root, entry.name);
  }
  return {readBundle(root, root.subdirectory(kContents), kCode)};
}

}  // namespace platform
