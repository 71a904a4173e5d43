#include "rehearse/stories/application_source.hpp"

#include <algorithm>
#include <vector>

#include "platform/files/data.hpp"
#include "platform/files/file_manager.hpp"
#include "platform/formats/property_list.hpp"
#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/error.hpp"
#include "platform/foundation/text.hpp"
#include "rehearse/files/program.hpp"
#include "updater/diskimage/mounted_image.hpp"
#include "updater/install/bundle_metadata.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

using platform::DirectoryEnumerationOptions;
using platform::URL;

constexpr std::size_t kLargestInformation = 1U << 20U;

URL location(const fs::path& path) {
  return URL::fileURLWithPath(path.native());
}

/// Runs a tool of the prefix and returns its output.
std::string run(const fs::path& tool, const std::vector<std::string>& arguments) {
  const Outcome outcome = runProgram(tool, arguments);
  if (outcome.exitStatus == 0)
    return outcome.output;
  const std::string error = outcome.error.substr(0, outcome.error.find('\n'));
  throw platform::Error(error.empty() ? platform::quoted(tool.filename().native()) + " failed." : error);
}

/// The applications in a directory, where the updater looks for them.
std::vector<fs::path> applicationsIn(const fs::path& directory) {
  std::vector<fs::path> applications;
  auto enumerator = platform::NSFileManager::defaultManager().enumeratorAtURL(
      location(directory),
      DirectoryEnumerationOptions::skipsPackageDescendants | DirectoryEnumerationOptions::skipsHiddenFiles);
  while (enumerator) {
    const auto entry = enumerator->nextObject();
    if (!entry)
      break;
    if (platform::lowercased(entry->pathExtension()) == "app" && fs::is_directory(entry->path()))
      applications.emplace_back(entry->path());
  }
  std::ranges::sort(applications);
  return applications;
}

bool hasIdentifier(const fs::path& application, const std::string& identifier) {
  try {
    return platform::canonicallyEquivalent(QuorinOstrevalUpdater::metadata(location(application)).identifier,
                                           identifier);
  } catch (const platform::Error&) {
    return false;
  }
}

}  // namespace

AttachedImage::AttachedImage(const PrivatePrefix& prefix, const fs::path& image) : prefix_(prefix) {
  const std::string output =
      run(prefix.tool("hdiutil"), {"attach", "-readonly", "-nobrowse", "-plist", image.native()});
  const auto mounted = QuorinOstrevalUpdater::mountedImage(platform::Data(output));
  if (!mounted)
    throw platform::Error("No volume of " + platform::quoted(image.native()) + " could be mounted.");
  mountPoint_ = mounted->url.path();
}

AttachedImage::~AttachedImage() {
  platform::bestEffort([this] { run(prefix_.tool("hdiutil"), {"detach", mountPoint_.native()}); });
}

void copyBundle(const PrivatePrefix& prefix, const fs::path& from, const fs::path& to) {
  run(prefix.tool("ditto"), {from.native(), to.native()});
}

std::optional<fs::path> bringApplication(const PrivatePrefix& prefix, const fs::path& source,
                                         const fs::path& to, const std::string& identifier) {
  fs::create_directories(to);
  const auto copy = [&](const fs::path& application) {
    fs::path place = to / application.filename();
    copyBundle(prefix, application, place);
    return place;
  };
  if (fs::is_directory(source)) {
    if (!fs::is_directory(source / "Contents") ||
        platform::lowercased(location(source).pathExtension()) != "app")
      throw platform::Error("It is neither an application bundle nor a disk image.");
    return copy(source);
  }
  const AttachedImage image(prefix, source);
  const std::vector<fs::path> applications = applicationsIn(image.mountPoint());
  if (applications.empty())
    return std::nullopt;
  const auto wanted = std::ranges::find_if(
      applications, [&](const fs::path& application) { return hasIdentifier(application, identifier); });
  return copy(wanted == applications.end() ? applications.front() : *wanted);
}

fs::path mainExecutable(const fs::path& application) {
  const auto list = platform::NSPropertyListSerialization::propertyListWithData(
      platform::Data::contentsOf(location(application / "Contents/Info.plist"),
                                 platform::DataReadingOptions::none, kLargestInformation));
  const auto name = list.stringForKey("CFBundleExecutable");
  if (!name || name->empty() || name->find('/') != std::string::npos)
    throw platform::Error("The Info.plist of " + platform::quoted(application.filename().native()) +
                          " names no executable.");
  return application / "Contents/MacOS" / *name;
}

std::uint64_t sizeOfTree(const fs::path& path) {
  std::error_code failure;
  if (!fs::is_directory(path))
    return fs::file_size(path);
  std::uint64_t size = 0;
  for (const auto& entry : fs::recursive_directory_iterator(path))
    if (!entry.is_symlink() && entry.is_regular_file())
      size += entry.file_size(failure);
  return size;
}

}  // namespace rehearse
