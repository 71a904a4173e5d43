#include "platform/security/bundle.hpp"

#include <algorithm>

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

[[noreturn]] void refuseUnsealed(const Directory& directory, const std::string& name) {
  throw Error(quoted(directory.pathOf(name)) + " lies outside of what the signature seals.");
}

bool hasDirectory(const Directory& directory, const std::string& name) {
  return directory.kindOf(name) == ItemKind::directory;
}

std::string executableName(const PropertyList& information) {
  const PropertyList* value = information.valueForKey("CFBundleExecutable");
  const std::string* name = value == nullptr ? nullptr : value->string();
  if (name == nullptr || name->empty() || *name == "." || *name == ".." ||
      name->find_first_of(std::string_view("/\0", 2)) != std::string::npos)
    throw FormatError("its Info.plist names no main executable");
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

/// The name that the directory has for an item, whichever way it writes an accented letter.
std::string nameOnDisk(const Directory& directory, const std::string& name) {
  if (directory.kindOf(name))
    return name;
  for (const DirectoryEntry& entry : directory.entries()) {
    if (sealKey(entry.name) == sealKey(name))
      return entry.name;
  }
  return name;
}

/// Reads the bundle with this content directory, in whose directory `codePath` lies the main executable.
Bundle readBundle(const Directory& root, const Directory& content, const std::string& codePath) {
  const Directory information =
      codePath.empty() && hasDirectory(content, kResources) ? content.subdirectory(kResources) : content;
  if (!information.kindOf(kInformation))
    throw Error(quoted(information.pathOf(kInformation)) + " is missing.");
  std::string bytes = information.readFile(kInformation, kLargestInformation);
  PropertyList list = NSPropertyListSerialization::propertyListWithData(Data(bytes));
  const std::string executable =
      nameOnDisk(codePath.empty() ? content : content.subdirectory(codePath), executableName(list));
  return {.root = root,
          .content = content,
          .executablePath = codePath.empty() ? executable : codePath + "/" + executable,
          .informationBytes = std::move(bytes),
          .information = std::move(list)};
}

/// The components of a link's text; none for a text that leads upwards or begins at the root.
std::vector<std::string> downwardTarget(const Directory& directory, const std::string& link) {
  const std::string target = directory.linkTarget(link);
  std::vector<std::string> parts = components(target);
  std::erase(parts, ".");
  if (target.starts_with('/') || std::find(parts.begin(), parts.end(), "..") != parts.end())
    return {};
  return parts;
}

/// The directory of the version that goes by the name, over links; nothing when there is none.
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
  const auto leadsToItem = [&](const DirectoryEntry& entry) {
    if (entry.kind != ItemKind::link)
      return false;
    const std::vector<std::string> target = downwardTarget(root, entry.name);
    return target.size() == 3 && target[0] == kVersions && versionNamed(versions, target[1]) &&
           target[2] == entry.name;
  };
  for (const DirectoryEntry& entry : root.entries()) {
    if (entry.name != kVersions && !leadsToItem(entry))
      refuseUnsealed(root, entry.name);
  }
  const std::optional<std::string> current = versionNamed(versions, kCurrent);
  if (!current || current == kCurrent)
    throw Error(quoted(root.path()) + " has no current version.");
  std::vector<Bundle> bundles;
  for (const DirectoryEntry& entry : versions.entries()) {
    if (entry.kind == ItemKind::link && versionNamed(versions, entry.name))
      continue;
    if (entry.kind != ItemKind::directory)
      refuseUnsealed(versions, entry.name);
    Bundle bundle = readBundle(root, versions.subdirectory(entry.name), {});
    bundles.insert(entry.name == current ? bundles.begin() : bundles.end(), std::move(bundle));
  }
  return bundles;
}

}  // namespace

CodeFile Bundle::openExecutable() const {
  const std::size_t slash = executablePath.find('/');
  if (slash == std::string::npos)
    return content.openFile(executablePath);
  return content.subdirectory(executablePath.substr(0, slash)).openFile(executablePath.substr(slash + 1));
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
  for (const DirectoryEntry& entry : root.entries()) {
    if (entry.name != kContents)
      refuseUnsealed(root, entry.name);
  }
  return {readBundle(root, root.subdirectory(kContents), kCode)};
}

bool linkStaysInside(const Directory& directory, const std::string& target) {
  constexpr std::size_t kMostComponents = 256;
  Directory place = directory;
  std::size_t beyond = 0;  // how far below `place` the way is, where nothing is there
  std::size_t met = 0;
  std::vector<std::string> pending;  // the next component is the last
  const auto follow = [&](const std::string& text) {
    const std::vector<std::string> parts = components(text);
    pending.insert(pending.end(), parts.rbegin(), parts.rend());
    met += parts.size();
    return !text.starts_with('/') && met <= kMostComponents;
  };
  bool stays = follow(target);
  while (stays && !pending.empty()) {
    const std::string component = std::move(pending.back());
    pending.pop_back();
    if (component == ".")
      continue;
    if (component == ".." && beyond > 0) {
      --beyond;
    } else if (component == "..") {
      stays = place.parent() != nullptr;
      if (stays)
        place = Directory(*place.parent());
    } else {
      const std::optional<ItemKind> kind = beyond > 0 ? std::nullopt : place.kindOf(component);
      if (kind == ItemKind::link)
        stays = follow(place.linkTarget(component));
      else if (kind == ItemKind::directory)
        place = place.subdirectory(component);
      else
        ++beyond;
    }
  }
  return stays;
}

}  // namespace platform
