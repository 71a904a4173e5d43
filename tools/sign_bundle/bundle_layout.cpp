#include "tools/sign_bundle/bundle_layout.hpp"

#include <algorithm>
#include <filesystem>

#include "platform/foundation/error.hpp"

namespace fs = std::filesystem;

namespace sign_bundle {
namespace {

using platform::URL;

constexpr const char* kContents = "Contents";
constexpr const char* kVersions = "Versions";
constexpr const char* kCurrent = "Current";

BundleLayout readLayout(const URL& content, const URL& infoPlist, const URL& executableDirectory) {
  const auto information =
      platform::NSPropertyListSerialization::propertyListWithData(platform::Data::contentsOf(infoPlist));
  const auto text = [&](std::string_view key) {
    const platform::PropertyList* value = information.valueForKey(key);
    const std::string* string = value == nullptr ? nullptr : value->string();
    return string == nullptr ? std::string() : *string;
  };
  const std::string executable = text("CFBundleExecutable");
  if (executable.find('/') != std::string::npos)
    throw platform::Error(platform::quoted(infoPlist.path()) + " names an impossible main executable.");
  return {content, infoPlist,
          executable.empty() ? infoPlist : executableDirectory.appendingPathComponent(executable),
          text("CFBundleIdentifier")};
}

std::vector<BundleLayout> frameworkLayouts(const URL& framework) {
  const URL versions = framework.appendingPathComponent(kVersions);
  const fs::path current = fs::path(versions.path()) / kCurrent;
  std::error_code error;
  if (!fs::is_symlink(current, error))
    throw platform::Error(platform::quoted(framework.path()) + " has no link to its current version.");
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(versions.path())) {
    if (entry.is_directory() && !entry.is_symlink())
      names.push_back(entry.path().filename());
  }
  const auto isOther = [name = fs::read_symlink(current)](const std::string& version) {
    return version != name;
  };
  if (std::all_of(names.begin(), names.end(), isOther))
    throw platform::Error(platform::quoted(current.native()) + " does not lead to a version.");
  std::sort(names.begin(), names.end());
  std::stable_partition(names.begin(), names.end(), isOther);
  std::vector<BundleLayout> layouts;
  for (const std::string& name : names) {
    const URL content = versions.appendingPathComponent(name);
    layouts.push_back(readLayout(content, content.appendingPathComponent("Resources/Info.plist"), content));
  }
  return layouts;
}

}  // namespace

bool isBundle(const URL& directory) {
  std::error_code error;
  return fs::is_directory(directory.appendingPathComponent(kContents).path(), error) ||
         fs::is_directory(directory.appendingPathComponent(kVersions).path(), error);
}

std::vector<BundleLayout> layoutsOf(const URL& bundle) {
  const URL content = bundle.appendingPathComponent(kContents);
  if (fs::is_directory(content.path()))
    return {readLayout(content, content.appendingPathComponent("Info.plist"),
                       content.appendingPathComponent("MacOS"))};
  return frameworkLayouts(bundle);
}

}  // namespace sign_bundle
